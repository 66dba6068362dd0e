#include <gtest/gtest.h>

#include <QProcess>
#include <QString>
#include <QStringList>

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
    EXPECT_EQ(lines[10],
              QStringLiteral("10\t-\tletters\t-\t0.000000\tyes\t-\talpha,default,alpha"));
    EXPECT_EQ(lines[42],
              QStringLiteral("42\t\\\tletters\t13\t0.350000\tyes\t\\\t\\,alpha,default,alpha"));
    EXPECT_EQ(lines[62],
              QStringLiteral(
                  "62\tctrlLeft\tmodifier\t10\t0.188462\tno\t⌃\tctrlLeft,modifier,default,alpha"));
    EXPECT_EQ(
        lines[128],
        QStringLiteral("1000\tf12\tfunctionRow\t12\t0.296154\tno\tF12\tf12,alpha,default,alpha"));
}

TEST(TappixKit, HelpAndUnknownCommands) {
    int exitCode = -1;
    EXPECT_TRUE(run({QStringLiteral("--help")}, &exitCode).contains(QStringLiteral("keys")));
    EXPECT_EQ(exitCode, 0);
    run({QStringLiteral("frobnicate")}, &exitCode);
    EXPECT_EQ(exitCode, 2);
}
