#pragma once

#include "QtPrinters.h"

#include <QString>
#include <QStringList>

// One ombrelo-cli command run in this process, as main() runs it but with the output kept:
// CliRun run = CliRun::of({"ls", "/DCIM"});
struct CliRun {
    int code = -1;
    QString out;
    QString err;

    static CliRun of(const QStringList& arguments);
    bool operator==(const CliRun&) const = default;
};
// Exit code, output and error output, for failure messages.
void PrintTo(const CliRun& run, std::ostream* os);
