#include "core/sample_files.h"

#include <QDir>
#include <QFileInfo>

namespace tappix {

std::string sampleFileProblem(const QString& directory, const std::string& name) {
    const QString relative = QString::fromStdString(name);
    if (relative.isEmpty() || QDir::isAbsolutePath(relative))
        return "the name must be relative to the kit's sounds directory";
    for (const QString& part : relative.split(QLatin1Char('/'))) {
        if (part == QLatin1String(".."))
            return "the name leaves the kit's sounds directory";
    }
    const QFileInfo info(directory + QLatin1Char('/') + relative);
    if (!info.exists())
        return "no such file";
    if (!info.isFile())
        return "not a regular file";
    return {};
}

} // namespace tappix
