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

TEST(FileNaming, SplitAndJoin)
{
    EXPECT_EQ(FileNaming::split("IMG_0001.HEIC"), (FileNaming::Parts{"IMG_0001", "HEIC"}));
    EXPECT_EQ(FileNaming::split(".hidden"), (FileNaming::Parts{".hidden", ""}));
    EXPECT_EQ(FileNaming::split("a.b.c"), (FileNaming::Parts{"a.b", "c"}));
    EXPECT_EQ(FileNaming::split("README"), (FileNaming::Parts{"README", ""}));
    EXPECT_EQ(FileNaming::split("trailing."), (FileNaming::Parts{"trailing", ""}));
    EXPECT_EQ(FileNaming::join("IMG_0001", "HEIC"), "IMG_0001.HEIC");
    EXPECT_EQ(FileNaming::join("IMG_0001", ""), "IMG_0001");
}

TEST(FileNaming, SafeNameReplacesTrimsAndNeverReturnsEmpty)
{
    EXPECT_EQ(FileNaming::safeName("..a:b/c.. ", 120), "a-b-c");
    EXPECT_EQ(FileNaming::safeName("   ", 120), "Untitled");
    EXPECT_EQ(FileNaming::safeName("...", 120), "Untitled");
    EXPECT_EQ(FileNaming::safeName("", 120), "Untitled");
    EXPECT_EQ(FileNaming::safeName("a\\b*c?d\"e<f>g|h", 120), "a-b-c-d-e-f-g-h");
    EXPECT_EQ(FileNaming::safeName("tab\there\nnew", 120), "tab-here-new");
    // Control characters become "-" before the ends are trimmed.
    EXPECT_EQ(FileNaming::safeName("\n Trips \t", 120), "- Trips -");
    EXPECT_EQ(FileNaming::safeName("  Trips  ", 120), "Trips");
    EXPECT_EQ(FileNaming::safeName(QString::fromUtf8("Água 2019-10/11 Paris"), 120),
              QString::fromUtf8("Água 2019-10-11 Paris"));
    // A name that already fits is never touched.
    EXPECT_EQ(FileNaming::safeName("Holidays (2)", 120), "Holidays (2)");
}

TEST(FileNaming, SafeNameCutsAtCharactersAndBytes)
{
    // 130 plain characters: cut to 120, then trailing spaces trimmed.
    const QString plain = QString(119, 'a') + " " + QString(10, 'b');
    EXPECT_EQ(FileNaming::safeName(plain, 120), QString(119, 'a'));

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
    // Whole characters only: what remains is a run of complete family/accent pairs or one more family.
    const int characters = graphemeCount(safe);
    QString rebuilt;
    for (int i = 0; i < characters; ++i)
        rebuilt += (i % 2 == 0) ? family : accented;
    EXPECT_EQ(safe, rebuilt);

    // 130 accented letters (3 bytes each): 120 characters would be 360 bytes, so bytes decide too.
    QString letters;
    for (int i = 0; i < 130; ++i)
        letters += accented;
    const QString cut = FileNaming::safeName(letters, 120);
    EXPECT_EQ(graphemeCount(cut), 66);
    EXPECT_EQ(cut.toUtf8().size(), 198);

    // 130 CJK characters (3 bytes each) likewise stop at 66 characters.
    const QString cjk = QString(130, QChar(0x5199));
    EXPECT_EQ(FileNaming::safeName(cjk, 120), QString(66, QChar(0x5199)));
}
