#include "host/lib/widgets/QtHelpers.h"

#include "host/lib/widgets/QtMetaTypes.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QSettings>

namespace Kestrion::QtHelpers {

namespace {

// Dialogs are modal and shown on the GUI thread only, so the hook needs no lock.
FileDialogHook& dialogHook() {
    static FileDialogHook hook;
    return hook;
}

QString openKey(const std::string& settingsKey) {
    return QStringLiteral("FileDialogs/Open/") + toQString(settingsKey);
}

QString saveKey(const std::string& fileType) {
    return QStringLiteral("FileDialogs/Save/") + toQString(fileType);
}

QString rememberedFolder(const QString& key) {
    const QString folder = QSettings().value(key).toString();
    if (!folder.isEmpty() && QFileInfo(folder).isDir())
        return folder;
    return QDir::homePath();
}

std::string ask(const FileDialogRequest& request) {
    if (dialogHook())
        return dialogHook()(request);
    QWidget* parent = QApplication::activeWindow();
    const QString caption = toQString(request.caption);
    const QString start = toQString(request.startPath);
    const QString filter = toQString(request.filter);
    const QString chosen =
        request.kind == FileDialogRequest::Kind::Save
            ? QFileDialog::getSaveFileName(parent, caption, start, filter, nullptr,
                                           request.confirmOverwrite ? QFileDialog::Options()
                                                                    : QFileDialog::DontConfirmOverwrite)
            : QFileDialog::getOpenFileName(parent, caption, start, filter);
    return toStdString(chosen);
}

} // namespace

std::string getSaveFilename(const std::string& caption, const std::string& fileType,
                            const std::string& defaultName, bool confirmOverwrite) {
    const QString type = toQString(fileType);
    QString proposed = toQString(defaultName);
    if (!type.isEmpty() && !proposed.isEmpty() && QFileInfo(proposed).suffix().isEmpty())
        proposed += QLatin1Char('.') + type;

    FileDialogRequest request;
    request.kind = FileDialogRequest::Kind::Save;
    request.confirmOverwrite = confirmOverwrite;
    request.caption = caption;
    request.filter =
        type.isEmpty()
            ? "All files (*)"
            : toStdString(type + QStringLiteral(" files (*.") + type + QStringLiteral(");;All files (*)"));
    request.startPath = toStdString(QDir(rememberedFolder(saveKey(fileType))).filePath(proposed));

    QString chosen = toQString(ask(request));
    if (chosen.isEmpty())
        return {};
    QFileInfo info(chosen);
    if (!type.isEmpty() && info.suffix().isEmpty())
        info.setFile(chosen + QLatin1Char('.') + type);
    QSettings().setValue(saveKey(fileType), info.absolutePath());
    return toStdString(info.absoluteFilePath());
}

std::string getOpenFilename(const std::string& caption, const std::string& filter,
                            const std::string& settingsKey, const std::string& startFolder) {
    FileDialogRequest request;
    request.kind = FileDialogRequest::Kind::Open;
    request.caption = caption;
    request.filter = filter;
    request.startPath = !startFolder.empty() && QFileInfo(toQString(startFolder)).isDir()
                            ? startFolder
                            : toStdString(rememberedFolder(openKey(settingsKey)));

    const QString chosen = toQString(ask(request));
    if (chosen.isEmpty())
        return {};
    const QFileInfo info(chosen);
    QSettings().setValue(openKey(settingsKey), info.absolutePath());
    return toStdString(info.absoluteFilePath());
}

std::string lastOpenFolder(const std::string& settingsKey) {
    return toStdString(QSettings().value(openKey(settingsKey)).toString());
}

std::string lastSaveFolder(const std::string& fileType) {
    return toStdString(QSettings().value(saveKey(fileType)).toString());
}

void setFileDialogHook(FileDialogHook hook) {
    dialogHook() = std::move(hook);
}

bool hasFileDialogHook() {
    return static_cast<bool>(dialogHook());
}

ScopedFileDialogHook::ScopedFileDialogHook(FileDialogHook hook)
    : m_previous(dialogHook()) {
    dialogHook() = std::move(hook);
}

ScopedFileDialogHook::~ScopedFileDialogHook() {
    dialogHook() = std::move(m_previous);
}

QUrl localFileUrl(const std::string& path) {
    return QUrl::fromLocalFile(toQString(path));
}

void registerMetaTypes() {
    // qRegisterMetaType is thread-safe and returns the same id when called again.
    qRegisterMetaType<std::string>("std::string");
}

} // namespace Kestrion::QtHelpers
