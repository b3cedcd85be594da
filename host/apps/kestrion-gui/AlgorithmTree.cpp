#include "host/apps/kestrion-gui/AlgorithmTree.h"

#include "host/lib/FactoryRegistry.h"

#include <QTreeWidgetItemIterator>

namespace Kestrion::Gui {

AlgorithmTree::AlgorithmTree(QWidget* parent)
    : QTreeWidget(parent) {
    setObjectName(QStringLiteral("AlgorithmTree"));
    setHeaderHidden(true);
    setColumnCount(1);
    connect(this, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* item) {
        const QString identifier = item->data(0, IdentifierRole).toString();
        if (!identifier.isEmpty())
            emit algorithmActivated(identifier);
    });
}

void AlgorithmTree::populate(const FactoryRegistry& registry) {
    clear();
    for (const FactoryRegistry::AlgorithmInfo& info : registry.algorithms()) {
        if (!info.listed)
            continue;
        QStringList levels = QString::fromStdString(info.guiPath).split(QLatin1Char(';'), Qt::SkipEmptyParts);
        for (QString& level : levels)
            level = level.trimmed();
        levels.removeAll(QString());
        if (levels.isEmpty())
            levels << QString::fromStdString(info.name);
        QTreeWidgetItem* parent = invisibleRootItem();
        for (int i = 0; i + 1 < levels.size(); ++i) {
            QTreeWidgetItem* folder = nullptr;
            for (int c = 0; c < parent->childCount() && !folder; ++c) {
                QTreeWidgetItem* child = parent->child(c);
                if (child->text(0) == levels[i] && child->data(0, IdentifierRole).isNull())
                    folder = child;
            }
            if (!folder) {
                folder = new QTreeWidgetItem(parent, QStringList(levels[i]));
                folder->setFlags(Qt::ItemIsEnabled);
            }
            parent = folder;
        }
        auto* leaf = new QTreeWidgetItem(parent, QStringList(levels.back()));
        leaf->setData(0, IdentifierRole, QString::fromStdString(info.identifier));
        leaf->setToolTip(
            0, QString::fromStdString(info.identifier + (info.owner.empty() ? "" : " (" + info.owner + ")")));
    }
    expandAll();
}

QTreeWidgetItem* AlgorithmTree::findAlgorithm(const std::string& identifier) const {
    const QString wanted = QString::fromStdString(identifier);
    for (QTreeWidgetItemIterator it(const_cast<AlgorithmTree*>(this)); *it; ++it)
        if ((*it)->data(0, IdentifierRole).toString() == wanted)
            return *it;
    return nullptr;
}

std::string AlgorithmTree::selectedAlgorithm() const {
    const QList<QTreeWidgetItem*> selected = selectedItems();
    return selected.isEmpty() ? std::string()
                              : selected.front()->data(0, IdentifierRole).toString().toStdString();
}

int AlgorithmTree::algorithmCount() const {
    int count = 0;
    for (QTreeWidgetItemIterator it(const_cast<AlgorithmTree*>(this)); *it; ++it)
        count += (*it)->data(0, IdentifierRole).isNull() ? 0 : 1;
    return count;
}

} // namespace Kestrion::Gui
