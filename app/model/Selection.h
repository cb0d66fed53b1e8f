#pragma once

#include "PhotoChoice.h"
#include "TickState.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <optional>
#include <utility>

class IndexedPlan;
class QSettings;

// What the user has chosen to back up: folders ticked by default (the ids of those unticked are
// kept), single photos chosen within a folder, Hidden ticked only on request, and which album
// folders are collapsed in the sidebar. Ids are kept even when the current plan has no such node,
// so that reconnecting the same device restores them. Counts are taken over the current plan.
class Selection : public QObject {
    Q_OBJECT
public:
    // Reads the selection from `settings` and, when `persist` is set (it is not in demo mode), keeps
    // it there.
    Selection(QSettings& settings, bool persist, QObject* parent = nullptr);

    // Reads what the settings keep; damaged photo choices are ignored (every folder whole).
    void load();
    // Every folder ticked and whole, Hidden not ticked. Writes nothing.
    void reset();
    // The plan that counts are taken over; none makes every count 0.
    void setPlan(const IndexedPlan* plan);

    const QSet<QString>& untickedIDs() const { return m_unticked; }
    const QHash<QString, PhotoChoice>& photoChoices() const { return m_choices; }
    bool includeHidden() const { return m_includeHidden; }
    const QSet<QString>& collapsedFolderIDs() const { return m_collapsed; }

    bool isTicked(const QString& leafID) const;
    TickState tickState(const QString& nodeID) const;
    // Unticks every leaf below a node that is on; ticks them all (and takes them whole) otherwise.
    void toggle(const QString& nodeID);
    void setTicked(const QString& leafID, bool on);

    bool isChosen(const QString& uuid, const QString& leafID) const;
    void togglePhoto(const QString& uuid, const QString& leafID);
    void chooseAllPhotos(const QString& leafID);
    void chooseNoPhotos(const QString& leafID);
    // Sets a leaf's choice as it stands (demo presets). Writes nothing.
    void setChoice(const QString& leafID, const PhotoChoice& choice);

    int chosenCount(const QString& nodeID) const;
    // How many chosen photos of a leaf the backup folder does not hold yet.
    int chosenNotBackedUp(const QString& leafID) const;
    // The chosen photos of a leaf, in plan order.
    QSet<QString> chosenUUIDs(const QString& leafID) const;

    void setFolder(const QString& id, bool expanded);
    // Writes the ticks, Hidden and the photo choices.
    void saveTicks();

signals:
    void untickedIDsChanged();
    void photoChoicesChanged();
    void includeHiddenChanged();
    void collapsedFolderIDsChanged();

private:
    struct Changes {
        bool unticked = false;
        bool choices = false;
        bool hidden = false;
    };

    // Removes the leaf's choice and ticks or unticks it.
    void takeWhole(const QString& leafID, bool on);
    void applyTick(const QString& leafID, bool on, Changes& changes);
    void applyChoice(const QString& leafID, const std::optional<PhotoChoice>& choice, Changes& changes);
    void announce(const Changes& changes);
    int leafChosen(const QString& leafID) const;
    struct ChoiceCounts {
        PhotoChoice choice;
        int held = 0;    // photos of the choice that are the leaf's
        int missing = 0; // of those, the ones the backup folder lacks
    };
    // Kept per leaf until its choice or the plan changes.
    const ChoiceCounts& choiceCounts(const QString& leafID, const PhotoChoice& choice) const;

    QSettings& m_settings;
    bool m_persist;
    const IndexedPlan* m_plan = nullptr;
    QSet<QString> m_unticked;
    QHash<QString, PhotoChoice> m_choices;
    bool m_includeHidden = false;
    QSet<QString> m_collapsed;
    mutable QHash<QString, ChoiceCounts> m_choiceCounts;
};
