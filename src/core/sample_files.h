#pragma once

#include <QString>
#include <string>

namespace tappix {

/// Why a kit's sample `name` must not be opened under `directory`: a name that is
/// absolute or leaves the directory, a missing file, or something that is not a
/// regular file (a FIFO would block the reader). Empty when the file is fine. Checks
/// the name and the file's type only; never opens it. Any thread.
std::string sampleFileProblem(const QString& directory, const std::string& name);

} // namespace tappix
