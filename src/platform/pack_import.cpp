#include "platform/pack_import.h"

#include "kits/pack_directory.h"
#include "platform/evdev/evdev_keymap.h"
#include "platform/evdev/pack_key_codes.h"
#include "platform/sndfile/sndfile_decoder.h"
#include "platform/zip/zip_pack_archive.h"

#include <QFile>
#include <QFileInfo>

namespace tappix {

std::unique_ptr<PackSource> openPackSource(const QString& path, std::string& error) {
    const QFileInfo info(path);
    if (!info.exists()) {
        error = "no such file or directory";
        return nullptr;
    }
    if (info.isDir())
        return PackDirectory::open(path, error);
    return ZipPackArchive::open(path, error);
}

std::optional<KeyCode> packKeyCode(std::int64_t packCode) {
    const auto linuxCode = evdev::linuxCodeForPackKey(packCode);
    return linuxCode ? evdev::virtualKeyCode(*linuxCode) : std::nullopt;
}

PackImportResult importPack(const QString& path, const PackImporter::Options& options) {
    std::string error;
    auto source = openPackSource(path, error);
    if (!source) {
        PackImportResult result;
        result.error = QFileInfo(path).fileName().toStdString() + ": " + error;
        return result;
    }
    SndfileDecoder decoder;
    PackImporter importer(
        decoder,
        [](const std::vector<float>& samples, const QString& file, std::string& failure) {
            return writeWav(samples, QFile::encodeName(file).toStdString(), failure);
        },
        packKeyCode);
    return importer.importPack(*source, options);
}

} // namespace tappix
