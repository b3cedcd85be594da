#include "atracsys/calibration/AtracsysToolTipFileFormat.h"

#include "atracsys/calibration/AtracsysPivotFile.h"

#include <QByteArray>
#include <QFile>
#include <QString>

namespace Kestrion {

bool AtracsysToolTipFileFormat::claims(const std::string& path) const {
    return QString::fromStdString(path).endsWith(QStringLiteral(".ini"), Qt::CaseInsensitive);
}

std::optional<ToolTipFileFormat::Facts> AtracsysToolTipFileFormat::read(const std::string& path,
                                                                        std::string& error) const {
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly)) {
        error = "cannot read geometry file " + path + ": " + file.errorString().toStdString();
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    const std::string text(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    Facts facts;
    facts.fiducials = AtracsysPivotFile::fiducialCount(text);
    facts.tip = AtracsysPivotFile::pivotOf(text);
    return facts;
}

bool AtracsysToolTipFileFormat::saveTip(const std::string& path, const Eigen::Vector3d& tip,
                                        std::string& error) const {
    return AtracsysPivotFile::save(path, tip, error);
}

} // namespace Kestrion
