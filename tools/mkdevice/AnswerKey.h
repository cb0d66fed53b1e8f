#pragma once

#include "Generation.h"
#include "PhoneContent.h"

#include <QByteArray>

// What the phone holds, as JSON, for end-to-end tests: every item with its flags as stored, its
// albums and the device paths (with SHA-256 and size when files were written) of its backup
// components; every album row; the media files the library does not know.
namespace AnswerKey {

QByteArray toJson(const Generation& generation, const PhoneContent& content, bool filesWritten);

} // namespace AnswerKey
