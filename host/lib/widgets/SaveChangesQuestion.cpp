#include "host/lib/widgets/SaveChangesQuestion.h"

#include <QMessageBox>
#include <QString>

namespace Kestrion {

SaveChangesQuestion::Hook& SaveChangesQuestion::hook() {
    // Asked on the GUI thread only: no lock.
    static Hook current;
    return current;
}

SaveChangesQuestion::Answer SaveChangesQuestion::ask(QWidget* parent, const std::string& what,
                                                     const std::string& action) {
    const std::string text = "Save the changes to " + what + " before " + action + "?";
    if (hook())
        return hook()(text);
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Unsaved changes"), QString::fromStdString(text),
                    QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, parent);
    box.setInformativeText(QStringLiteral("Your changes are lost if you do not save them."));
    box.setDefaultButton(QMessageBox::Save);
    switch (box.exec()) {
    case QMessageBox::Save:
        return Answer::Save;
    case QMessageBox::Discard:
        return Answer::Discard;
    default:
        return Answer::Cancel;
    }
}

SaveChangesQuestion::ScopedHook::ScopedHook(Hook hook)
    : m_previous(SaveChangesQuestion::hook()) {
    SaveChangesQuestion::hook() = std::move(hook);
}

SaveChangesQuestion::ScopedHook::~ScopedHook() {
    SaveChangesQuestion::hook() = std::move(m_previous);
}

} // namespace Kestrion
