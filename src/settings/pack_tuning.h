#pragma once

#include <QJsonObject>
#include <optional>

namespace tappix {

/// A kit's own pitch, gain, pitch variation and stereo width.
struct PackTuning {
    /// Pitch factor.
    float pitch = 1.0f;
    /// Gain factor.
    float gain = 1.0f;
    /// Largest random pitch deviation per stroke, as a fraction.
    float variation = 0.04f;
    /// Stereo width factor.
    float panWidth = 1.0f;

    /// The JSON object {"gain", "panWidth", "pitch", "variation"}, floats in shortest form.
    QJsonObject toJson() const;

    /// Strict decoding: all four members are required numbers.
    static std::optional<PackTuning> fromJson(const QJsonValue& value);

    friend bool operator==(const PackTuning&, const PackTuning&) = default;
};

} // namespace tappix
