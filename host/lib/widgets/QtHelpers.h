#pragma once

#include "host/lib/widgets/QtMetaTypes.h"

#include <QString>
#include <QUrl>

#include <functional>
#include <string>

namespace Kestrion::QtHelpers {

/// Text conversions between the host's UTF-8 strings and Qt's.
inline QString toQString(const std::string& text) {
    return QString::fromStdString(text);
}
inline std::string toStdString(const QString& text) {
    return text.toStdString();
}

/// What a file dialog helper is about to ask the user; handed to the dialog hook.
struct FileDialogRequest {
    enum class Kind { Open, Save };
    Kind kind = Kind::Open;
    std::string caption;
    /// The Qt name filter shown, e.g. "Geometry files (*.ini)".
    std::string filter;
    /// The folder (open) or the proposed file (save) the dialog starts with.
    std::string startPath;
    /// Save: whether the dialog asks before an existing file is chosen (false: the caller
    /// refuses existing files itself).
    bool confirmOverwrite = true;
};

/// Answers a file dialog instead of the user: the chosen path, or "" for a cancelled dialog.
using FileDialogHook = std::function<std::string(const FileDialogRequest&)>;

/// Asks for a file to save to, starting in the folder last used for this file type (else the
/// home folder) with the default name proposed ("newmarker" with type "ini" proposes
/// "newmarker.ini"); a default name with a folder (an absolute path: the file being worked on)
/// is proposed where it is. `fileType` is an extension without the dot ("ini"); a chosen name without
/// an extension gets it. Returns the absolute path, or "" when the user cancels. The folder is
/// remembered (QSettings, key "FileDialogs/Save/<fileType>"). Without `confirmOverwrite` the
/// dialog does not offer to replace an existing file (the caller never replaces one). GUI thread
/// only.
std::string getSaveFilename(const std::string& caption, const std::string& fileType,
                            const std::string& defaultName, bool confirmOverwrite = true);

/// Asks for an existing file to open, with a Qt name filter ("Geometry files (*.ini)"),
/// starting in `startFolder` when it is a folder (the folder of the file the user works on),
/// else in the folder last used under `settingsKey` (else the home folder). Returns the
/// absolute path, or "" when the user cancels. The folder of the chosen file is remembered
/// under the key (QSettings, key "FileDialogs/Open/<settingsKey>"). GUI thread only.
std::string getOpenFilename(const std::string& caption, const std::string& filter,
                            const std::string& settingsKey, const std::string& startFolder = std::string());

/// The folder the open or save helpers remember under a key ("" when none yet).
std::string lastOpenFolder(const std::string& settingsKey);
std::string lastSaveFolder(const std::string& fileType);

/// Test hook: while a hook is set, the helpers above show no dialog and take the hook's answer
/// (which then goes through the same handling as a user's choice: extension, remembered
/// folder). An empty hook restores the real dialogs. GUI thread only.
void setFileDialogHook(FileDialogHook hook);
bool hasFileDialogHook();

/// Sets a file dialog hook for the lifetime of the object and restores the previous one.
class ScopedFileDialogHook {
public:
    explicit ScopedFileDialogHook(FileDialogHook hook);
    ~ScopedFileDialogHook();
    ScopedFileDialogHook(const ScopedFileDialogHook&) = delete;
    ScopedFileDialogHook& operator=(const ScopedFileDialogHook&) = delete;

private:
    FileDialogHook m_previous;
};

/// A "file" URL for a local path (a folder to show in the desktop's file browser).
QUrl localFileUrl(const std::string& path);

/// Registers the host's types used in queued Qt calls and signals (std::string, so that
/// Q_ARG(std::string, ...) works with queued QMetaObject::invokeMethod). Idempotent; the host's
/// widgets call it, plugins may too.
void registerMetaTypes();

} // namespace Kestrion::QtHelpers
