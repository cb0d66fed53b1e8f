#pragma once

#include <QString>

#include <exception>

// The user-facing text of any failure that ends a command: the description of the system's own
// errors, or the message of anything else.
QString describeError(const std::exception& error);
