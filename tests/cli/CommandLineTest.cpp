#include "CliRun.h"
#include "RunProgram.h"
#include "Version.h"

#include <gtest/gtest.h>

TEST(CommandLine, VersionHelpAndUsageErrors)
{
    const CliRun version = CliRun::of({"--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ(version.out, QString("ombrelo-cli ") + ombrelo::kVersion + "\n");
    const CliRun help = CliRun::of({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(help.out.startsWith("Usage: ombrelo-cli")) << help.out.toStdString();

    // One line of error, then the usage, on the error stream.
    for (const QStringList& bad : {QStringList{"frobnicate"}, QStringList{"--frobnicate"}, QStringList{}}) {
        const CliRun result = CliRun::of(bad);
        EXPECT_EQ(result.code, 2);
        EXPECT_TRUE(result.out.isEmpty());
        EXPECT_TRUE(result.err.section('\n', 1).startsWith("Usage: ombrelo-cli")) << result.err.toStdString();
    }
    const ProgramResult unknown = runProgram(OMBRELO_BIN_DIR "/ombrelo-cli", {"--nope"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_TRUE(unknown.out.isEmpty());
    EXPECT_TRUE(unknown.err.startsWith("ombrelo-cli: unknown option \"--nope\".\n"))
        << unknown.describe().toStdString();
}
