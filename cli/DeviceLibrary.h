#pragma once

#include "backup/BackupSession.h"

#include <QString>
#include <QTextStream>

#include <functional>
#include <optional>

// Reading a phone from the command line: the steps of the session with the lines that tell the
// user what is going on ("Device: …", the warning for an OS release not tested yet, "Reading the
// Photos database...").
namespace DeviceLibrary {

// Where those lines go, one whole line each, with whether it reports a problem.
using Say = std::function<void(const QString& line, bool isProblem)>;

// Connects the session to the device (the first one when `udid` is absent) and reads its library.
// Throws what the session's steps throw.
void open(BackupSession& session, const std::optional<QString>& udid, const Say& say);
void open(BackupSession& session, const std::optional<QString>& udid, QTextStream& status);

// Polls every four seconds until a usable device (the given one, if any) is connected.
// Says each new reason for waiting once. Returns false when `stop` asks to give up.
bool waitForDevice(const std::optional<QString>& udid, const Say& say, const std::function<bool()>& stop);

} // namespace DeviceLibrary
