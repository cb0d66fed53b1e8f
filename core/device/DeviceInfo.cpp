#include "DeviceInfo.h"

QString DeviceInfo::summary() const
{
    if (problem)
        return udid + ": " + *problem;
    return name + " (" + productType + ", iOS " + productVersion + ")";
}
