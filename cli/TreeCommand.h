#pragma once

#include "Command.h"

// ombrelo-cli tree: the backup tree of a phone, a database file or the demo library.
class TreeCommand : public Command {
public:
    QString name() const override { return QStringLiteral("tree"); }
    QString summary() const override;
    void configure(QCommandLineParser& parser) const override;
    int run(const QCommandLineParser& parser, CommandContext& context) override;
};
