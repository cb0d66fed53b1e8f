#include "Selection.h"

#include "IndexedPlan.h"

#include <QSettings>
#include <QStringList>

#include <algorithm>

namespace {

const QString kUntickedKey = QStringLiteral("untickedIDs");
const QString kIncludeHiddenKey = QStringLiteral("includeHidden");
const QString kPhotoChoicesKey = QStringLiteral("photoChoices");
const QString kCollapsedKey = QStringLiteral("collapsedFolderIDs");

QSet<QString> stringSet(const QVariant& value)
{
    const QStringList list = value.toStringList();
    return QSet<QString>(list.begin(), list.end());
}

QStringList sortedList(const QSet<QString>& set)
{
    QStringList list(set.begin(), set.end());
    std::sort(list.begin(), list.end());
    return list;
}

bool isHiddenLeaf(const QString& leafID) { return leafID == BackupPlan::hiddenID; }

} // namespace

Selection::Selection(QSettings& settings, bool persist, QObject* parent)
    : QObject(parent), m_settings(settings), m_persist(persist)
{
}

void Selection::load()
{
    m_collapsed = stringSet(m_settings.value(kCollapsedKey));
    m_unticked = stringSet(m_settings.value(kUntickedKey));
    m_choices = PhotoChoice::decode(m_settings.value(kPhotoChoicesKey).toByteArray()).value_or(m_choices);
    m_includeHidden = m_settings.value(kIncludeHiddenKey, false).toBool();
}

void Selection::setPlan(const IndexedPlan* plan)
{
    m_plan = plan;
    m_choiceCounts.clear();
}

void Selection::reset()
{
    Changes changes{!m_unticked.isEmpty(), !m_choices.isEmpty(), m_includeHidden};
    m_unticked.clear();
    m_choices.clear();
    m_includeHidden = false;
    announce(changes);
}

bool Selection::isTicked(const QString& leafID) const
{
    return isHiddenLeaf(leafID) ? m_includeHidden : !m_unticked.contains(leafID);
}

TickState Selection::tickState(const QString& nodeID) const
{
    if (m_plan && !m_plan->isLeaf(nodeID)) {
        bool allOn = true, allOff = true;
        for (const QString& leafID : m_plan->leafIDs(nodeID)) {
            const TickState state = tickState(leafID);
            allOn = allOn && state == TickState::on;
            allOff = allOff && state == TickState::off;
        }
        return allOn ? TickState::on : allOff ? TickState::off : TickState::mixed;
    }
    if (!isTicked(nodeID))
        return TickState::off;
    const int assets = m_plan ? m_plan->assetCount(nodeID) : 0;
    if (assets == 0 || !m_choices.contains(nodeID))
        return TickState::on;
    const int chosen = leafChosen(nodeID);
    return chosen == 0 ? TickState::off : chosen == assets ? TickState::on : TickState::mixed;
}

void Selection::toggle(const QString& nodeID)
{
    if (!m_plan || !m_plan->node(nodeID))
        return;
    const bool tick = tickState(nodeID) != TickState::on;
    Changes changes;
    for (const QString& leafID : m_plan->leafIDs(nodeID)) {
        applyTick(leafID, tick, changes);
        if (tick)
            applyChoice(leafID, std::nullopt, changes);
    }
    announce(changes);
    saveTicks();
}

void Selection::setTicked(const QString& leafID, bool on)
{
    Changes changes;
    applyTick(leafID, on, changes);
    announce(changes);
}

bool Selection::isChosen(const QString& uuid, const QString& leafID) const
{
    if (!isTicked(leafID))
        return false;
    const auto choice = m_choices.constFind(leafID);
    if (choice == m_choices.cend())
        return true;
    return choice->uuids.contains(uuid) == (choice->mode == PhotoChoice::Mode::only);
}

void Selection::togglePhoto(const QString& uuid, const QString& leafID)
{
    if (!m_plan || !m_plan->isLeaf(leafID))
        return;
    Changes changes;
    if (!isTicked(leafID)) {
        // Clicking a photo of an unticked folder chooses that photo alone.
        applyTick(leafID, true, changes);
        applyChoice(leafID, PhotoChoice{PhotoChoice::Mode::only, {uuid}}, changes);
    } else {
        PhotoChoice choice = m_choices.value(leafID);
        if (choice.uuids.contains(uuid))
            choice.uuids.remove(uuid);
        else
            choice.uuids.insert(uuid);
        const bool whole = choice.mode == PhotoChoice::Mode::allExcept && choice.uuids.isEmpty();
        applyChoice(leafID, whole ? std::nullopt : std::optional(choice), changes);
        if (leafChosen(leafID) == 0) {
            // The last chosen photo was clicked away: the folder is no longer taken at all.
            applyTick(leafID, false, changes);
            applyChoice(leafID, std::nullopt, changes);
        }
    }
    announce(changes);
    saveTicks();
}

void Selection::chooseAllPhotos(const QString& leafID) { takeWhole(leafID, true); }

void Selection::chooseNoPhotos(const QString& leafID) { takeWhole(leafID, false); }

void Selection::takeWhole(const QString& leafID, bool on)
{
    Changes changes;
    applyChoice(leafID, std::nullopt, changes);
    applyTick(leafID, on, changes);
    announce(changes);
    saveTicks();
}

void Selection::setChoice(const QString& leafID, const PhotoChoice& choice)
{
    Changes changes;
    applyChoice(leafID, choice, changes);
    announce(changes);
}

int Selection::chosenCount(const QString& nodeID) const
{
    if (!m_plan)
        return 0;
    int count = 0;
    for (const QString& leafID : m_plan->leafIDs(nodeID))
        count += leafChosen(leafID);
    return count;
}

int Selection::leafChosen(const QString& leafID) const
{
    if (!m_plan || !isTicked(leafID))
        return 0;
    const int assets = m_plan->assetCount(leafID);
    const auto choice = m_choices.constFind(leafID);
    if (choice == m_choices.cend())
        return assets;
    const int held = choiceCounts(leafID, *choice).held;
    return choice->mode == PhotoChoice::Mode::only ? held : assets - held;
}

int Selection::chosenNotBackedUp(const QString& leafID) const
{
    if (!m_plan || !isTicked(leafID))
        return 0;
    const int missing = m_plan->assetCount(leafID) - m_plan->backedUpCount(leafID);
    const auto choice = m_choices.constFind(leafID);
    if (choice == m_choices.cend())
        return missing;
    const int heldMissing = choiceCounts(leafID, *choice).missing;
    return choice->mode == PhotoChoice::Mode::only ? heldMissing : missing - heldMissing;
}

const Selection::ChoiceCounts& Selection::choiceCounts(const QString& leafID, const PhotoChoice& choice) const
{
    const auto cached = m_choiceCounts.constFind(leafID);
    if (cached != m_choiceCounts.cend() && cached->choice == choice)
        return *cached;
    ChoiceCounts counts{choice, 0, 0};
    for (const QString& uuid : m_plan->heldBy(leafID, choice.uuids)) {
        ++counts.held;
        counts.missing += m_plan->isBackedUp(leafID, uuid) ? 0 : 1;
    }
    return *m_choiceCounts.insert(leafID, counts);
}

QSet<QString> Selection::chosenUUIDs(const QString& leafID) const
{
    QSet<QString> chosen;
    const BackupNode* leaf = m_plan ? m_plan->node(leafID) : nullptr;
    if (!leaf)
        return chosen;
    for (const QString& uuid : leaf->assetUUIDs)
        if (isChosen(uuid, leafID))
            chosen.insert(uuid);
    return chosen;
}

void Selection::setFolder(const QString& id, bool expanded)
{
    if (m_collapsed.contains(id) != expanded)
        return;
    if (expanded)
        m_collapsed.remove(id);
    else
        m_collapsed.insert(id);
    emit collapsedFolderIDsChanged();
    if (m_persist)
        m_settings.setValue(kCollapsedKey, sortedList(m_collapsed));
}

void Selection::saveTicks()
{
    if (!m_persist)
        return;
    m_settings.setValue(kUntickedKey, sortedList(m_unticked));
    m_settings.setValue(kIncludeHiddenKey, m_includeHidden);
    m_settings.setValue(kPhotoChoicesKey, PhotoChoice::encode(m_choices));
}

void Selection::applyTick(const QString& leafID, bool on, Changes& changes)
{
    if (isHiddenLeaf(leafID)) {
        changes.hidden = changes.hidden || m_includeHidden != on;
        m_includeHidden = on;
    } else if (on) {
        changes.unticked = m_unticked.remove(leafID) || changes.unticked;
    } else if (!m_unticked.contains(leafID)) {
        m_unticked.insert(leafID);
        changes.unticked = true;
    }
}

void Selection::applyChoice(const QString& leafID, const std::optional<PhotoChoice>& choice, Changes& changes)
{
    if (!choice) {
        changes.choices = m_choices.remove(leafID) > 0 || changes.choices;
    } else if (m_choices.value(leafID) != *choice || !m_choices.contains(leafID)) {
        m_choices.insert(leafID, *choice);
        changes.choices = true;
    }
}

void Selection::announce(const Changes& changes)
{
    if (changes.unticked)
        emit untickedIDsChanged();
    if (changes.choices)
        emit photoChoicesChanged();
    if (changes.hidden)
        emit includeHiddenChanged();
}
