#include "TempDir.h"
#include "library/SQLiteDB.h"

#include <gtest/gtest.h>

TEST(SQLiteDB, RowsNullsAndColumns)
{
    TempDir dir;
    SQLiteDB db(dir.filePath("t.sqlite"), false, true);
    db.execute("CREATE TABLE t(a INTEGER, b TEXT, c REAL)");
    db.execute("INSERT INTO t VALUES(?,?,?)", {SQLValue::integer(1), SQLValue::text("x"), SQLValue::real(2.5)});
    db.execute("INSERT INTO t VALUES(?,?,?)", {SQLValue::null(), SQLValue::null(), SQLValue::null()});

    int calls = 0;
    db.query("SELECT a FROM t WHERE a = 99", {}, [&](const SQLRow&) { ++calls; });
    EXPECT_EQ(calls, 0);

    QList<std::optional<int64_t>> ints;
    QList<std::optional<QString>> texts;
    QList<std::optional<double>> reals;
    db.query("SELECT a, b, c FROM t ORDER BY rowid", {}, [&](const SQLRow& row) {
        ints << row.integer(0);
        texts << row.text(1);
        reals << row.real(2);
    });
    ASSERT_EQ(ints.size(), 2);
    EXPECT_EQ(ints[0], 1);
    EXPECT_EQ(texts[0], QString("x"));
    EXPECT_EQ(reals[0], 2.5);
    EXPECT_FALSE(ints[1].has_value()); // NULL is absent, not 0
    EXPECT_FALSE(texts[1].has_value());
    EXPECT_FALSE(reals[1].has_value());

    EXPECT_EQ(db.columns("t"), (QSet<QString>{"a", "b", "c"}));
    EXPECT_TRUE(db.columns("nope").isEmpty());
}

TEST(SQLiteDB, ErrorTexts)
{
    TempDir dir;
    const QString missing = dir.filePath("missing.sqlite");
    try {
        SQLiteDB db(missing, true, false);
        FAIL() << "opening a missing file read-only must fail";
    } catch (const SQLiteError& error) {
        EXPECT_TRUE(error.message().startsWith(missing + ": ")) << error.message().toStdString();
        EXPECT_TRUE(error.description().startsWith("SQLite: " + missing + ": "));
    }

    SQLiteDB db(dir.filePath("t.sqlite"), false, true);
    try {
        db.execute("SELEC 1");
        FAIL() << "a syntax error must fail";
    } catch (const SQLiteError& error) {
        EXPECT_EQ(error.message(), "near \"SELEC\": syntax error in: SELEC 1");
    }
    db.execute("CREATE TABLE k(x PRIMARY KEY)");
    db.execute("INSERT INTO k VALUES(1)");
    try {
        db.execute("INSERT INTO k VALUES(1)");
        FAIL() << "a constraint violation must fail";
    } catch (const SQLiteError& error) {
        EXPECT_EQ(error.message(), "UNIQUE constraint failed: k.x in: INSERT INTO k VALUES(1)");
    }
    // The failed statements were finalized: the connection still works and closes cleanly.
    int count = 0;
    db.query("SELECT count(*) FROM k", {}, [&](const SQLRow& row) { count = int(*row.integer(0)); });
    EXPECT_EQ(count, 1);
}
