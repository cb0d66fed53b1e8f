#pragma once

#include "Command.h"

// ombrelo-cli ls DEVICE_PATH [--udid U]: the names in a folder of the device's media tree.
class LsCommand : public Command {
public:
    QString name() const override { return QStringLiteral("ls"); }
    QString summary() const override { return QStringLiteral("List a folder of the device's media, one name a line."); }
    void configure(QCommandLineParser& parser) const override;
    int run(const QCommandLineParser& parser, CommandContext& context) override;
};
