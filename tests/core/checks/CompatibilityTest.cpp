#include "checks/Compatibility.h"
#include "QtPrinters.h"

#include <gtest/gtest.h>

using Compatibility::Status;

TEST(Compatibility, Verdicts)
{
    EXPECT_EQ(Compatibility::supportedMajors(), (QList<int>{18, 26}));
    EXPECT_EQ(Compatibility::supportedDescription(), "iOS/iPadOS 18 and 26");

    EXPECT_TRUE(Compatibility::status("26.0.1").isTested());
    EXPECT_TRUE(Compatibility::status("18.0").isTested());
    EXPECT_TRUE(Compatibility::status(".18").isTested());
    EXPECT_TRUE(Compatibility::status("26").isTested());

    EXPECT_EQ(Compatibility::status("27.0"),
              Status::newerThanTested("iOS 27 hasn't been tested with this version of the app yet. "
                                      "The backup may be incomplete. Check for an update."));
    EXPECT_EQ(Compatibility::status("17.5"),
              Status::untested("iOS 17 hasn't been tested with this app. The backup may be incomplete."));
    EXPECT_EQ(Compatibility::status("19.0"),
              Status::untested("iOS 19 hasn't been tested with this app. The backup may be incomplete."));
    EXPECT_EQ(Compatibility::status(""),
              Status::untested(QString::fromUtf8("iOS version “” couldn't be read, so compatibility is unknown.")));
    EXPECT_EQ(Compatibility::status("beta"),
              Status::untested(QString::fromUtf8("iOS version “beta” couldn't be read, so compatibility is unknown.")));
    EXPECT_EQ(Compatibility::status("99999999999999999999.1").kind(), Status::Kind::untested);
    EXPECT_FALSE(Compatibility::status("27.0").isTested());
}
