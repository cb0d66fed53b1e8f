#pragma once

#include "Command.h"

// ombrelo-cli pull DEVICE_PATH LOCAL_FILE [--udid U]: streams one device file into a new local
// file and prints its SHA-256 (in sha256sum's format) and size.
class PullCommand : public Command {
public:
    QString name() const override { return QStringLiteral("pull"); }
    QString summary() const override
    {
        return QStringLiteral("Copy one file from the device, printing its SHA-256 and size.");
    }
    void configure(QCommandLineParser& parser) const override;
    int run(const QCommandLineParser& parser, CommandContext& context) override;
};
