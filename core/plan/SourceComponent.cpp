#include "SourceComponent.h"

#include "FileNaming.h"

QString SourceComponent::fileName(const QString& stem) const
{
    switch (component) {
    case Component::original:
    case Component::liveVideo:
    case Component::aae:
        return FileNaming::join(stem, ext);
    // An edited still and an edited video share the suffix and differ by extension only.
    case Component::edited:
    case Component::editedLiveVideo:
    case Component::editedStill:
        return FileNaming::join(stem + "_edited", ext);
    case Component::adjustments:
        break;
    }
    return stem + ".AAE.plist";
}
