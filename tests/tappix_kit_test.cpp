#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
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

TEST(TappixKit, KeysPrintsOneTabSeparatedLinePerCode) {
    int exitCode = -1;
    const QStringList lines =
        run({QStringLiteral("keys")}, &exitCode).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(exitCode, 0);
    ASSERT_EQ(lines.size(), 128 + 23);
    for (const QString& line : lines)
        EXPECT_EQ(line.count('\t'), 7) << line.toStdString();

    EXPECT_EQ(lines[0],
              QStringLiteral("0\ta\tletters\t1\t-0.296154\tyes\tA\ta,alpha,default,alpha"));
    // The tables themselves are checked in key_group_test.cpp; here, how a named and
    // an unnamed code are printed, and that media codes follow the first 128.
    EXPECT_EQ(lines[10],
              QStringLiteral("10\t-\tletters\t-\t0.000000\tyes\t-\talpha,default,alpha"));
    EXPECT_TRUE(lines[128].startsWith("1000\tf12\t")) << lines[128].toStdString();
}

TEST(TappixKit, HelpAndUnknownCommands) {
    int exitCode = -1;
    EXPECT_TRUE(run({QStringLiteral("--help")}, &exitCode).contains(QStringLiteral("keys")));
    EXPECT_EQ(exitCode, 0);
    run({QStringLiteral("frobnicate")}, &exitCode);
    EXPECT_EQ(exitCode, 2);
}

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

TEST(TappixKit, RenderAndDingWriteDeterministicWavs) {
    QTemporaryDir dir;
    int code = -1;
    run({"render", "--seed", "7", "--decay-ms", "10", "--up", "--out", dir.filePath("a.wav")},
        &code);
    ASSERT_EQ(code, 0);
    run({"render", "--seed", "7", "--decay-ms", "10", "--up", "--out", dir.filePath("b.wav")},
        &code);
    QFile a(dir.filePath("a.wav")), b(dir.filePath("b.wav"));
    ASSERT_TRUE(a.open(QIODevice::ReadOnly) && b.open(QIODevice::ReadOnly));
    const QByteArray bytes = a.readAll();
    EXPECT_EQ(bytes, b.readAll());
    EXPECT_EQ(bytes.size(), 44 + 2 * 960); // 10 ms decay, release: 960 samples
    run({"render", "--decay-ms", "-3", "--out", dir.filePath("c.wav")}, &code);
    EXPECT_EQ(code, 2);
    run({"ding", "--out", dir.filePath("ding.wav")}, &code);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(QFileInfo(dir.filePath("ding.wav")).size(), 44 + 2 * 26400);
}
