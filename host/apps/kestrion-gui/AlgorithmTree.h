#pragma once

#include <QTreeWidget>

#include <string>

namespace Kestrion {
class FactoryRegistry;
}

namespace Kestrion::Gui {

/// The algorithms the loaded plugins offer, as a tree of their GUI paths: the path
/// "IO;Atracsys Tracking;SpryTrack" of algorithm "Atracsys.SpryTrackStream" gives the folders
/// "IO" > "Atracsys Tracking" and the leaf "SpryTrack". Unlisted algorithms are left out;
/// an algorithm without a path is listed at the top under its name. Activating a leaf (double
/// click, Enter) asks for the algorithm to be created.
class AlgorithmTree : public QTreeWidget {
    Q_OBJECT
public:
    explicit AlgorithmTree(QWidget* parent = nullptr);

    /// Lists the algorithms of the registry again.
    void populate(const FactoryRegistry& registry);
    /// The leaf of an algorithm, or null.
    QTreeWidgetItem* findAlgorithm(const std::string& identifier) const;
    /// The identifier of the selected leaf, "" when none is selected.
    std::string selectedAlgorithm() const;
    /// The number of algorithm leaves.
    int algorithmCount() const;

    static constexpr int IdentifierRole = Qt::UserRole + 1;

signals:
    void algorithmActivated(const QString& identifier);
};

} // namespace Kestrion::Gui
