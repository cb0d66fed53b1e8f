#include "DescribedError.h"

DescribedError::DescribedError(const QString& description)
    : std::runtime_error(description.toStdString()), m_description(description)
{
}

QString describeError(const std::exception& error)
{
    if (const auto* described = dynamic_cast<const DescribedError*>(&error))
        return described->description();
    return QString::fromUtf8(error.what());
}
