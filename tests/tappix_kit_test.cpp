#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace {

QString run(const QStringList& arguments, int* exitCode) {
    QProcess process;
    process.start(QStringLiteral(TAPPIX_KIT_PATH), arguments);
    process.waitForFinished(10000);
    *exitCode = process.exitCode();
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace

namespace {

QString makeKit(const QTemporaryDir& dir, const QByteArray& manifest, bool withSample = true) {
    QDir().mkpath(dir.filePath("kit/sounds"));
    QFile file(dir.filePath("kit/config.json"));
    file.open(QIODevice::WriteOnly);
    file.write(manifest);
    file.close();
    if (withSample) {
        int code = -1;
        run({"render", "--out", dir.filePath("kit/sounds/a.wav")}, &code);
    }
    return dir.filePath("kit");
}

const QByteArray kGoodKit = R"({"id":"demo","metadata":{"name":"Demo","brand":"Test","author":"me"},
    "license":{"type":"CC0","url":""},"sounds":{"alpha":{"down":["a.wav"],"up":[]}}})";

} // namespace

TEST(TappixKit, CheckPassesAGoodKitAndNamesEachProblem) {
    QTemporaryDir dir;
    int code = -1;
    const QString good = run({"check", makeKit(dir, kGoodKit)}, &code);
    EXPECT_EQ(code, 0) << good.toStdString();
    EXPECT_TRUE(good.contains("Demo — Test (id demo)"));
    EXPECT_TRUE(good.endsWith("OK\n"));

    QTemporaryDir bad;
    const QByteArray broken =
        R"({"id":"x","metadata":{"name":"X","brand":"B","author":"A","supportsKeyUp":true},
        "license":{"type":"t","url":""},"sounds":{"enter":{"down":["a.wav","../escape.wav","gone.wav"],"up":[]}}})";
    const QString out = run({"check", makeKit(bad, broken)}, &code);
    EXPECT_EQ(code, 1);
    for (const char* expected :
         {"sounds/../escape.wav: the name leaves the kit's sounds directory",
          "sounds/gone.wav: no such file", "neither \"alpha\" nor \"default\"",
          "supportsKeyUp is true but no sound has an \"up\" file"})
        EXPECT_TRUE(out.contains(expected)) << expected << "\n" << out.toStdString();

    QTemporaryDir notJson;
    EXPECT_TRUE(run({"check", makeKit(notJson, "{\"id\":")}, &code)
                    .contains("config.json is not valid JSON"));
    EXPECT_EQ(code, 1);
}
