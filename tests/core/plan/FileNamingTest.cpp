#include "plan/FileNaming.h"
#include "QtPrinters.h"

#include <QTextBoundaryFinder>

#include <gtest/gtest.h>

namespace {

int graphemeCount(const QString& text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

} // namespace

TEST(FileNaming, SplitAtTheLastDotAndSafeNames)
{
    for (const auto& [name, stem, ext] : {std::tuple{"IMG_0001.HEIC", "IMG_0001", "HEIC"},
                                          {".hidden", ".hidden", ""},
                                          {"a.b.c", "a.b", "c"},
                                          {"trailing.", "trailing", ""}})
        EXPECT_EQ(FileNaming::split(name), (FileNaming::Parts{stem, ext})) << name;
    EXPECT_EQ(FileNaming::join("IMG_0001", ""), "IMG_0001");

    for (const auto& [title, safe] : {
             std::pair{"..a:b/c.. ", "a-b-c"},
             {"   ", "Untitled"},
             {"...", "Untitled"},
             {"", "Untitled"},
             {"a\\b*c?d\"e<f>g|h", "a-b-c-d-e-f-g-h"},
             {"\n Trips \t", "- Trips -"}, // control characters become "-" before the ends are trimmed
             {"  Trips  ", "Trips"},
             {"Água 2019-10/11 Paris", "Água 2019-10-11 Paris"},
             {"Holidays (2)", "Holidays (2)"}, // a name that already fits is never touched
         })
        EXPECT_EQ(FileNaming::safeName(QString::fromUtf8(title), 120), QString::fromUtf8(safe)) << title;
}

TEST(FileNaming, SafeNameCutsAtCharactersAndBytes)
{
    // 130 plain characters: cut to 120, then trailing spaces trimmed.
    EXPECT_EQ(FileNaming::safeName(QString(119, 'a') + " " + QString(10, 'b'), 120), QString(119, 'a'));

    // 130 user-perceived characters of emoji and combining marks: each is many bytes, so the
    // 200-byte limit cuts first, and never inside a character.
    const QString family = QString::fromUtf8("👨‍👩‍👧‍👦"); // 25 bytes, one character
    const QString accented = QString::fromUtf8("e\u0301");                 // 3 bytes, one character
    QString title;
    for (int i = 0; i < 65; ++i)
        title += family + accented;
    ASSERT_EQ(graphemeCount(title), 130);
    const QString safe = FileNaming::safeName(title, 120);
    EXPECT_LE(safe.toUtf8().size(), 200);
    EXPECT_GT(safe.toUtf8().size(), 200 - 25); // as much as fits
    EXPECT_TRUE(title.startsWith(safe));
    QString rebuilt; // whole characters only
    for (int i = 0; i < graphemeCount(safe); ++i)
        rebuilt += (i % 2 == 0) ? family : accented;
    EXPECT_EQ(safe, rebuilt);

    // 130 accented letters or CJK characters (3 bytes each): 120 characters would be 360 bytes.
    EXPECT_EQ(FileNaming::safeName(accented.repeated(130), 120), accented.repeated(66));
    EXPECT_EQ(FileNaming::safeName(QString(130, QChar(0x5199)), 120), QString(66, QChar(0x5199)));
}
