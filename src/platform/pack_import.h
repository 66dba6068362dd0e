#pragma once

#include "kits/pack_importer.h"

#include <memory>

namespace tappix {

/// Opens the pack at `path` for import: a .zip file or a directory. Null, with the
/// reason in `error`, when neither holds a pack. Any thread.
std::unique_ptr<PackSource> openPackSource(const QString& path, std::string& error);

/// Maps a pack's key code to Tappix's key code through the same table as capture.
std::optional<KeyCode> packKeyCode(std::int64_t packCode);

/// Imports the pack at `path` into `options.kitDirectory` with the platform's decoder
/// (libsndfile and libsoxr), 16-bit WAV files and the capture key table. Any thread;
/// the user interface runs it off the main thread.
PackImportResult importPack(const QString& path, const PackImporter::Options& options);

} // namespace tappix
