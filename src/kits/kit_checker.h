#pragma once

#include "core/sample_decoder.h"
#include "kits/soundpack_config.h"

#include <QString>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// What checking a kit directory found.
struct KitReport {
    /// The manifest, when it decoded.
    std::optional<SoundpackConfig> config;
    /// Things that stop the kit from working as its maker meant, in plain words.
    std::vector<std::string> problems;
    /// Things worth knowing that do not break the kit.
    std::vector<std::string> notes;
    /// Distinct sample files that decoded.
    int goodFiles = 0;
    /// Their total length in seconds.
    double totalSeconds = 0;

    /// Whether the kit is fine.
    bool ok() const { return config.has_value() && problems.empty(); }
};

/// Checks a kit directory the way Tappix will use it: the manifest decodes, every
/// file it names is a safe, decodable sample, and every key will find a sound.
KitReport checkKit(const QString& directory, SampleDecoder& decoder);

/// A one-screen summary of a kit that checked fine.
std::vector<std::string> describeKit(const KitReport& report);

} // namespace tappix
