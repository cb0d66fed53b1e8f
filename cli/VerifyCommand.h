#pragma once

#include "Command.h"

// ombrelo-cli verify DEST [--json]: checks a backup folder against its manifest, reading only.
class VerifyCommand : public Command {
public:
    QString name() const override { return QStringLiteral("verify"); }
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    int run(const QCommandLineParser& parser, CommandContext& context) override;
};
