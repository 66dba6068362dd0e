#include "platform/keyboard_group.h"

#include "core/log.h"

#include <QStandardPaths>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace tappix {
namespace {

// pkexec's own exit codes: the prompt was dismissed, or authorisation failed.
constexpr int kPkexecDismissed = 126;
constexpr int kPkexecNotAuthorized = 127;

// Where the system's own tools live; never the user's PATH for what runs as root.
const QStringList kSystemDirectories{QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin"),
                                     QStringLiteral("/sbin"), QStringLiteral("/bin")};

QString gpasswd() {
    return QStandardPaths::findExecutable(QStringLiteral("gpasswd"), kSystemDirectories);
}

QString pkexec() {
    return QStandardPaths::findExecutable(QStringLiteral("pkexec"));
}

/// This user's name; empty when the database does not say.
QString userName() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return {};
    return QString::fromLocal8Bit(found->pw_name);
}

} // namespace

KeyboardGroup::KeyboardGroup(QObject* parent) : QObject(parent) {}

KeyboardGroup::~KeyboardGroup() {
    // A prompt still open is left to the user; its answer just goes unheard.
    if (process_) {
        process_->disconnect(this);
        process_->setParent(nullptr);
        connect(process_, &QProcess::finished, process_, &QObject::deleteLater);
    }
}

bool KeyboardGroup::canAsk() {
    return ::getuid() != 0 && !pkexec().isEmpty() && !gpasswd().isEmpty();
}

bool KeyboardGroup::askToJoin(const QString& group, Done done) {
    if (process_ || group.isEmpty() || !canAsk())
        return false;
    const QString name = userName();
    if (name.isEmpty()) {
        qCWarning(lcApp, "cannot ask for the group %s: this user has no name in the database",
                  qPrintable(group));
        return false;
    }
    done_ = std::move(done);
    process_ = new QProcess(this);
    process_->setProgram(pkexec());
    process_->setArguments({gpasswd(), QStringLiteral("-a"), name, group});
    process_->setStandardInputFile(QProcess::nullDevice());
    process_->setProcessChannelMode(QProcess::SeparateChannels);
    connect(process_, &QProcess::finished, this, &KeyboardGroup::finished);
    connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            finished(-1, QProcess::CrashExit);
    });
    qCInfo(lcApp, "asking polkit to add %s to the group %s", qPrintable(name), qPrintable(group));
    process_->start();
    return true;
}

void KeyboardGroup::finished(int exitCode, QProcess::ExitStatus status) {
    if (!process_)
        return;
    const QString said = QString::fromLocal8Bit(process_->readAllStandardError()).trimmed();
    process_->deleteLater();
    process_ = nullptr;
    GroupJoinResult result = GroupJoinResult::failed;
    if (status == QProcess::NormalExit && exitCode == 0)
        result = GroupJoinResult::joined;
    else if (status == QProcess::NormalExit && exitCode == kPkexecDismissed)
        result = GroupJoinResult::cancelled;
    else if (status == QProcess::NormalExit && exitCode == kPkexecNotAuthorized)
        result = said.contains(QLatin1String("authentication agent"), Qt::CaseInsensitive)
                     ? GroupJoinResult::noPrompt
                     : GroupJoinResult::refused;
    qCInfo(lcApp, "polkit answered: exit %d%s%s", exitCode, said.isEmpty() ? "" : ": ",
           qPrintable(said));
    if (Done done = std::exchange(done_, {}))
        done(result, said);
}

QString KeyboardGroup::shellQuote(const QString& text) {
    QString quoted = text;
    quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

bool KeyboardGroup::startWithGroup(const QString& group, const QString& program,
                                   const QStringList& arguments) {
    const QString sg = QStandardPaths::findExecutable(QStringLiteral("sg"), kSystemDirectories);
    if (sg.isEmpty() || group.isEmpty()) {
        qCWarning(lcApp, "cannot start again with the group %s: no sg on this system",
                  qPrintable(group));
        return false;
    }
    QString command = QStringLiteral("exec ") + shellQuote(program);
    for (const QString& argument : arguments)
        command += QLatin1Char(' ') + shellQuote(argument);
    // One sg only: util-linux's sg (Debian 13) keeps only the new group, so a second sg
    // back to the user's own group would take the keyboard's group away again.
    qCInfo(lcApp, "starting again with the group %s: %s %s -c %s", qPrintable(group),
           qPrintable(sg), qPrintable(group), qPrintable(command));
    QProcess process;
    process.setProgram(sg);
    process.setArguments({group, QStringLiteral("-c"), command});
    process.setStandardInputFile(QProcess::nullDevice());
    return process.startDetached();
}

} // namespace tappix
