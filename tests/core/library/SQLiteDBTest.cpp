#include "library/SQLiteDB.h"
#include "TempDir.h"

#include <gtest/gtest.h>

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
