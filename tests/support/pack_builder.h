#pragma once

// Builds keyboard-sound packs of the kind the importer reads: audio files whose
// stretches are told apart by loudness, config.json, and zip archives of them.

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <cmath>
#include <deque>
#include <numbers>
#include <sndfile.h>
#include <sys/stat.h>
#include <vector>
#include <zip.h>

namespace tappix::test {

/// Writes a 1 kHz tone in `format` at `rate`: one stretch of `stretchMs` per entry of
/// `levels`, each at that peak level. False when this libsndfile cannot write `format`.
inline bool writeTone(const QString& path, int rate, int format, const std::vector<double>& levels,
                      double stretchMs = 100, double hz = 1000) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = format;
    SNDFILE* file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!file)
        return false;
    const auto perStretch = static_cast<std::size_t>(rate * stretchMs / 1000);
    std::vector<float> samples;
    for (double level : levels)
        for (std::size_t i = 0; i < perStretch; ++i)
            samples.push_back(static_cast<float>(
                level * std::sin(2 * std::numbers::pi * hz * double(samples.size()) / rate)));
    const bool ok = sf_writef_float(file, samples.data(), sf_count_t(samples.size())) ==
                    sf_count_t(samples.size());
    sf_close(file);
    return ok;
}

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kOgg = SF_FORMAT_OGG | SF_FORMAT_VORBIS;
constexpr int kMp3 = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;

/// Writes `json` as `dir`/config.json.
inline void writeConfig(const QString& dir, const QJsonObject& json) {
    QDir().mkpath(dir);
    QFile file(dir + "/config.json");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(json).toJson());
}

/// A zip archive written with libzip, entries added in order.
class ZipWriter {
public:
    explicit ZipWriter(const QString& path) {
        int error = 0;
        archive_ = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
        EXPECT_NE(archive_, nullptr);
    }
    ~ZipWriter() { close(); }

    /// Adds an entry named exactly `name` (no checks: tests add hostile names).
    void add(const QString& name, QByteArray bytes, bool link = false) {
        buffers_.push_back(std::move(bytes));
        zip_source_t* source = zip_source_buffer(archive_, buffers_.back().constData(),
                                                 zip_uint64_t(buffers_.back().size()), 0);
        const zip_int64_t index = zip_file_add(archive_, name.toUtf8().constData(), source,
                                               ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8);
        ASSERT_GE(index, 0) << zip_strerror(archive_);
        if (link)
            zip_file_set_external_attributes(archive_, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX,
                                             zip_uint32_t(S_IFLNK | 0777) << 16);
    }

    /// Adds every file under `dir`, named `prefix` plus its relative path.
    void addTree(const QString& dir, const QString& prefix) {
        QDir root(dir);
        for (const QFileInfo& info :
             root.entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot)) {
            QFile file(info.filePath());
            if (info.isDir())
                addTree(info.filePath(), prefix + info.fileName() + "/");
            else if (file.open(QIODevice::ReadOnly))
                add(prefix + info.fileName(), file.readAll());
        }
    }

    /// Writes the archive.
    void close() {
        if (archive_) {
            EXPECT_EQ(zip_close(archive_), 0) << zip_strerror(archive_);
        }
        archive_ = nullptr;
    }

private:
    zip_t* archive_ = nullptr;
    std::deque<QByteArray> buffers_;
};

} // namespace tappix::test
