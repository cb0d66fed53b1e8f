#pragma once

#include "Command.h"

// ombrelo-cli backup DEST: a dry run, a confirmation, then the real run with live progress.
class BackupCommand : public Command {
public:
    QString name() const override { return QStringLiteral("backup"); }
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    int run(const QCommandLineParser& parser, CommandContext& context) override;
};
