#pragma once

#include "Command.h"

// ombrelo-cli check: cross-checks the files on the device against its Photos library.
class CheckCommand : public Command {
public:
    QString name() const override { return QStringLiteral("check"); }
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    int run(const QCommandLineParser& parser, CommandContext& context) override;
};
