#include "platform/sndfile/sndfile_decoder.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <numeric>

using namespace tappix;

namespace {

/// Makes a 0.1 s 1 kHz tone with sox in the given encoding.
QString makeTone(const QTemporaryDir& dir, const QString& name, const QStringList& format) {
    const QString path = dir.filePath(name);
    QProcess sox;
    sox.start("sox", QStringList{"-n"} + format +
                         QStringList{path, "synth", "0.1", "sine", "1000", "vol", "0.5"});
    EXPECT_TRUE(sox.waitForFinished(10000) && sox.exitCode() == 0)
        << sox.readAllStandardError().toStdString();
    return path;
}

float rms(const std::vector<float>& s) {
    return float(std::sqrt(std::inner_product(s.begin(), s.end(), s.begin(), 0.0) / s.size()));
}

} // namespace

TEST(SndfileDecoder, EveryCommonEncodingLoadsAs48kMonoAndWritesBackAs16Bit) {
    QTemporaryDir dir;
    SndfileDecoder decoder;
    struct Case {
        const char* name;
        QStringList format;
    };
    const Case cases[] = {
        {"u8.wav", {"-r", "48000", "-c", "1", "-b", "8", "-e", "unsigned-integer"}},
        {"s16.wav", {"-r", "48000", "-c", "1", "-b", "16"}},
        {"s24.wav", {"-r", "48000", "-c", "1", "-b", "24"}},
        {"f32.wav", {"-r", "48000", "-c", "1", "-b", "32", "-e", "floating-point"}},
        {"stereo44.wav", {"-r", "44100", "-c", "2", "-b", "16"}},
        {"hi96.wav", {"-r", "96000", "-c", "1", "-b", "24"}},
        {"tone.flac", {"-r", "44100", "-c", "2", "-b", "16"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string error;
        const QString path = makeTone(dir, c.name, c.format);
        auto buffer = decoder.decode(path, error);
        ASSERT_TRUE(buffer) << error;
        EXPECT_NEAR(double(buffer->frames()), 4800.0, 24.0);
        EXPECT_NEAR(rms(buffer->samples), 0.5f / std::sqrt(2.0f), 0.02f);

        // writeWav writes 16-bit PCM, which reads back to within a 16-bit step.
        const QString again = dir.filePath("again.wav");
        ASSERT_TRUE(writeWav(buffer->samples, again.toStdString(), error)) << error;
        EXPECT_EQ(QFile(again).size(), 44 + 2 * qint64(buffer->frames()));
        const auto back = decoder.decode(again, error);
        ASSERT_TRUE(back && back->samples.size() == buffer->samples.size()) << error;
        for (std::size_t i = 0; i < back->samples.size(); ++i)
            ASSERT_NEAR(back->samples[i], buffer->samples[i], 1.0f / 32768 + 1e-6f) << i;

        // Stretches read as a stream are the same stretches of the whole, cut short at
        // the end (the last starts past it).
        const std::vector<SampleDecoder::Span> spans{
            {0, 480}, {2400, 3000}, {4700, 6000}, {9000, 9100}};
        const auto parts = decoder.decodeSpans(path, spans, error);
        ASSERT_TRUE(parts) << error;
        EXPECT_EQ(parts->frames, buffer->frames());
        ASSERT_EQ(parts->parts.size(), spans.size());
        for (std::size_t i = 0; i < spans.size(); ++i) {
            const std::size_t last = std::min(spans[i].last, buffer->frames());
            const std::size_t first = std::min(spans[i].first, last);
            ASSERT_EQ(parts->parts[i].frames(), last - first) << i;
            for (std::size_t f = first; f < last; ++f)
                ASSERT_NEAR(parts->parts[i].samples[f - first], buffer->samples[f], 1e-5f) << f;
        }
    }
}

TEST(SndfileDecoder, BadFilesAndUnwritablePathsFailWithAReason) {
    QTemporaryDir dir;
    SndfileDecoder decoder;
    const auto write = [&](const char* name, const QByteArray& bytes) {
        QFile file(dir.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return file.fileName();
    };
    QFile good(makeTone(dir, "good.wav", {"-r", "48000", "-c", "1", "-b", "16"}));
    ASSERT_TRUE(good.open(QIODevice::ReadOnly));
    // Nothing, words with a .wav name, and a header cut short.
    for (const QString& path : {dir.filePath("missing.wav"), write("empty.wav", ""),
                                write("text.wav", "this is not audio, just words in a file"),
                                write("cut.wav", good.read(30))}) {
        std::string error;
        EXPECT_FALSE(decoder.decode(path, error)) << path.toStdString();
        EXPECT_FALSE(error.empty());
    }
    std::string error;
    EXPECT_FALSE(writeWav({0.5f}, "/nonexistent/dir/key.wav", error));
}
