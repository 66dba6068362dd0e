#pragma once

#include "core/sample_decoder.h"
#include "input/key_group.h"
#include "kits/soundpack_config.h"

#include <QString>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tappix {

/// A kit the build makes: its manifest and the samples of every file it names.
struct BundledKit {
    /// The manifest.
    SoundpackConfig config;
    /// File name → mono 48 kHz samples.
    std::map<std::string, std::vector<float>> files;
};

/// The ids of the kits Tappix synthesises for itself, in the order it makes them: the
/// modelled keyboards (crisp-click, silk-linear, deep-linear, velvet, walnut-thock,
/// chalk-clack) and the gun kits (gun-pistol, gun-suppressed, gun-shotgun).
std::vector<std::string> synthesizedKitIds();

/// One synthesised kit, or none for an id not in `synthesizedKitIds()`. Deterministic:
/// the same id always gives the same samples, bit for bit, on every machine.
std::optional<BundledKit> synthesizedKit(std::string_view id);

/// Every synthesised kit, in the order of `synthesizedKitIds()`.
std::vector<BundledKit> synthesizedKits();

/// The "ibm-buckling-spring" kit from a directory of per-key recordings named
/// `<Linux input code in hex>-0.wav` (press) and `-1.wav` (release), resampled to
/// 48 kHz; `translate` maps a Linux input code to Tappix's key code. None, with
/// `error` set, when the directory holds no usable recordings.
std::optional<BundledKit>
bucklingSpringKit(const QString& recordings, SampleDecoder& decoder,
                  const std::function<std::optional<KeyCode>(int)>& translate, std::string& error);

} // namespace tappix
