#pragma once

#include "Command.h"

// ombrelo-cli devices [--json]: the iPhones and iPads connected by USB.
class DevicesCommand : public Command {
public:
    QString name() const override { return QStringLiteral("devices"); }
    QString summary() const override { return QStringLiteral("List the iPhones and iPads connected by USB."); }
    void configure(QCommandLineParser& parser) const override;
    int run(const QCommandLineParser& parser, CommandContext& context) override;
};
