#pragma once

#include <Eigen/Core>

#include <string>

class QWidget;

namespace Kestrion {

class AtracsysTrackingStreamBase;

/// Saves a tool tip (a pivot calibration's result) where the tool is: into the geometry file its
/// instrument was loaded from, keeping every other line of it, or, for a geometry compiled into
/// the plugin (":/..."), into a copy in a file the user chooses (in the workspace's folder unless
/// the user goes elsewhere). The file is replaced through a temporary file and a rename, so it
/// never holds a partial text; a read-only file is left alone. Then the tool is loaded again from
/// that file, so that the stream tracks its tip from the next frame on (and a workspace saved
/// afterwards names the copy). Failures are logged and returned with the file and the reason.
///
/// GUI thread: it may show a file dialog. The stream's geometry calls take the stream's own locks.
class AtracsysToolTipSaver {
public:
    struct Outcome {
        enum class Kind { Saved, Cancelled, Failed };
        Kind kind = Kind::Failed;
        /// The file written (Saved), or the one that could not be (Failed), when known.
        std::string file;
        /// Why it failed, naming the file.
        std::string error;
    };

    /// Saves `tip` (mm, the marker's frame) for the stream's instrument `instrumentId`; a copy of
    /// a compiled-in geometry is proposed in `proposedFolder` (else where the last one went).
    static Outcome save(AtracsysTrackingStreamBase& stream, const std::string& instrumentId,
                        const Eigen::Vector3d& tip, const std::string& proposedFolder);

    /// The folder of the workspace of the main window that holds `widget` ("" when none is
    /// known: a new workspace, or a widget outside the host's window).
    static std::string workspaceFolder(const QWidget* widget);
};

} // namespace Kestrion
