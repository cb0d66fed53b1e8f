#pragma once

#include "Command.h"

struct PhotoLibrary;

// `ombrelo-cli library`: reads a Photos database (a file, or the connected device's) and shows
// what it holds, as counts or as the whole library in JSON.
class LibraryCommand : public Command {
public:
    QString name() const override { return QStringLiteral("library"); }
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    int run(const QCommandLineParser& parser, CommandContext& context) override;

private:
    PhotoLibrary readDevice(const std::optional<QString>& udid, CommandContext& context) const;
};
