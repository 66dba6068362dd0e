#include "app/command_line.h"

#include "platform/dbus/remote_control_client.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLocale>
#include <QTextStream>
#include <cmath>

namespace tappix {
namespace {

using Kind = CommandLine::Request::Kind;

const QString kDescription = QStringLiteral(
    "Plays a mechanical-keyboard sound for every key that moves.\n\n"
    "With no option, starts Tappix, or reopens the one that runs. The other options\n"
    "control the running Tappix and exit: 0 when done, 1 when Tappix refused or does\n"
    "not run, 2 for a usage error.");

// Options Qt's own GUI start-up takes (-platform xcb and the like) are let through.
const QStringList kQtValueOptions{
    QStringLiteral("platform"),        QStringLiteral("platformpluginpath"),
    QStringLiteral("platformtheme"),   QStringLiteral("plugin"),
    QStringLiteral("qwindowgeometry"), QStringLiteral("qwindowicon"),
    QStringLiteral("qwindowtitle"),    QStringLiteral("display"),
    QStringLiteral("style"),           QStringLiteral("stylesheet"),
    QStringLiteral("session")};
const QStringList kQtFlagOptions{QStringLiteral("reverse"), QStringLiteral("nograb"),
                                 QStringLiteral("dograb"), QStringLiteral("sync")};

struct Options {
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            QStringLiteral("Show this help and exit.")};
    QCommandLineOption version{{QStringLiteral("v"), QStringLiteral("version")},
                               QStringLiteral("Show the version and exit.")};
    QCommandLineOption toggle{QStringLiteral("toggle"),
                              QStringLiteral("Turn the sounds on when off, off when on.")};
    QCommandLineOption on{QStringLiteral("on"), QStringLiteral("Turn the sounds on.")};
    QCommandLineOption off{QStringLiteral("off"), QStringLiteral("Turn the sounds off.")};
    QCommandLineOption volume{QStringLiteral("volume"), QStringLiteral("Set the volume, 0 to 100."),
                              QStringLiteral("N")};
    QCommandLineOption kit{QStringLiteral("kit"), QStringLiteral("Play the kit with this id."),
                           QStringLiteral("ID")};
    QCommandLineOption mix{QStringLiteral("mix"),
                           QStringLiteral("Play the mix with this id, or none for no mix."),
                           QStringLiteral("ID|none")};
    QCommandLineOption panel{QStringLiteral("panel"), QStringLiteral("Open the panel.")};
    QCommandLineOption settings{
        QStringLiteral("settings"),
        QStringLiteral("Open the settings window, on PAGE when given (sounds, mix, create, "
                       "behaviour, look, about).")};
    QCommandLineOption status{QStringLiteral("status"),
                              QStringLiteral("Print Enabled, Volume, Kit, Mix and Sleeping, "
                                             "one line each.")};
    QCommandLineOption quit{QStringLiteral("quit"), QStringLiteral("Quit Tappix.")};
    // Given by a Tappix that starts itself again with a group it just joined: this
    // process takes over from it. Not for people.
    QCommandLineOption takeOver{QStringLiteral("take-over"), QString()};

    std::vector<QCommandLineOption> qt;

    void addTo(QCommandLineParser& parser) {
        parser.setApplicationDescription(kDescription);
        parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
        for (const auto* option : {&help, &version, &toggle, &on, &off, &volume, &kit, &mix, &panel,
                                   &settings, &status, &quit})
            parser.addOption(*option);
        takeOver.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(takeOver);
        parser.addPositionalArgument(QStringLiteral("PAGE"),
                                     QStringLiteral("With --settings: the page to open."),
                                     QStringLiteral("[PAGE]"));
        for (const QString& name : kQtValueOptions)
            qt.emplace_back(name, QString(), QStringLiteral("value"));
        for (const QString& name : kQtFlagOptions)
            qt.emplace_back(name, QString());
        for (QCommandLineOption& option : qt) {
            option.setFlags(QCommandLineOption::HiddenFromHelp);
            parser.addOption(option);
        }
    }
};

QString yesNo(bool value) {
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

QStringList CommandLine::fromArgv(int argc, char** argv) {
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

CommandLine::CommandLine(const QStringList& arguments) {
    QCommandLineParser parser;
    Options o;
    o.addTo(parser);
    if (!parser.parse(arguments)) {
        mode_ = Mode::usageError;
        error_ = parser.errorText();
        return;
    }
    if (parser.isSet(o.help)) {
        mode_ = Mode::help;
        return;
    }
    if (parser.isSet(o.version)) {
        mode_ = Mode::version;
        return;
    }
    const QStringList positional = parser.positionalArguments();
    auto usageError = [this](const QString& why) {
        mode_ = Mode::usageError;
        error_ = why;
    };
    if (positional.size() > (parser.isSet(o.settings) ? 1 : 0)) {
        usageError(QStringLiteral("Unexpected argument '%1'.").arg(positional.constLast()));
        return;
    }
    if (int(parser.isSet(o.toggle)) + int(parser.isSet(o.on)) + int(parser.isSet(o.off)) > 1) {
        usageError(QStringLiteral("Choose one of --toggle, --on and --off."));
        return;
    }
    for (const auto* single : {&o.volume, &o.kit, &o.mix})
        if (parser.values(*single).size() > 1) {
            usageError(QStringLiteral("--%1 is given twice.").arg(single->names().constFirst()));
            return;
        }

    // Applied in this order, so a refused kit or mix leaves the rest untouched too.
    if (parser.isSet(o.kit))
        requests_.push_back({Kind::setKit, parser.value(o.kit)});
    if (parser.isSet(o.mix)) {
        const QString id = parser.value(o.mix);
        requests_.push_back({Kind::setMix, id == QLatin1String("none") ? QString() : id});
    }
    if (parser.isSet(o.volume)) {
        QString text = parser.value(o.volume).trimmed();
        if (text.endsWith(QLatin1Char('%')))
            text.chop(1);
        bool ok = false;
        const double percent = QLocale::c().toDouble(text, &ok);
        if (!ok || !std::isfinite(percent) || percent < 0.0 || percent > 100.0) {
            mode_ = Mode::badValue;
            error_ = QStringLiteral("the volume must be a number from 0 to 100, not \"%1\"")
                         .arg(parser.value(o.volume));
            requests_.clear();
            return;
        }
        requests_.push_back({Kind::setVolume, percent / 100.0});
    }
    if (parser.isSet(o.on) || parser.isSet(o.off))
        requests_.push_back({Kind::setEnabled, parser.isSet(o.on)});
    if (parser.isSet(o.toggle))
        requests_.push_back({Kind::toggle, {}});
    if (parser.isSet(o.panel))
        requests_.push_back({Kind::showPanel, {}});
    if (parser.isSet(o.settings))
        requests_.push_back({Kind::openSettings, positional.value(0)});
    if (parser.isSet(o.status))
        requests_.push_back({Kind::status, {}});
    if (parser.isSet(o.quit))
        requests_.push_back({Kind::quit, {}});
    if (!requests_.empty())
        mode_ = Mode::remote;
    else
        takeOver_ = parser.isSet(o.takeOver);
}

int CommandLine::run(const RemoteControlClient& client, QTextStream& out, QTextStream& err) const {
    auto usage = [] {
        QCommandLineParser parser;
        Options o;
        o.addTo(parser);
        return parser.helpText();
    };
    switch (mode_) {
    case Mode::help:
        out << usage();
        return kExitOk;
    case Mode::version:
        out << "Tappix " << TAPPIX_VERSION << "\n";
        return kExitOk;
    case Mode::usageError:
        err << "tappix: " << error_ << "\n\n" << usage();
        return kExitUsage;
    case Mode::badValue:
        err << "tappix: " << error_ << "\n";
        return kExitFailed;
    case Mode::remote:
        return runRemote(client, out, err);
    case Mode::start:
        break;
    }
    err << "tappix: nothing to do here\n";
    return kExitUsage;
}

int CommandLine::exec(int& argc, char** argv) const {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tappix"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAPPIX_VERSION));
    QTextStream out(stdout);
    QTextStream err(stderr);
    const RemoteControlClient client;
    return run(client, out, err);
}

int CommandLine::runRemote(const RemoteControlClient& client, QTextStream& out,
                           QTextStream& err) const {
    for (const Request& request : requests_) {
        RemoteControlClient::Result result;
        switch (request.kind) {
        case Kind::setKit:
            result = client.setProperty(QStringLiteral("Kit"), request.value.toString());
            break;
        case Kind::setMix:
            result = client.setProperty(QStringLiteral("Mix"), request.value.toString());
            break;
        case Kind::setVolume:
            result = client.setProperty(QStringLiteral("Volume"), request.value.toDouble());
            break;
        case Kind::setEnabled:
            result = client.setProperty(QStringLiteral("Enabled"), request.value.toBool());
            break;
        case Kind::toggle:
            result = client.call(QStringLiteral("Toggle"));
            break;
        case Kind::showPanel:
            result = client.call(QStringLiteral("ShowPanel"));
            break;
        case Kind::openSettings:
            result = client.call(QStringLiteral("OpenSettings"), {request.value.toString()});
            break;
        case Kind::quit:
            result = client.call(QStringLiteral("Quit"));
            break;
        case Kind::status: {
            result = client.properties();
            if (!result.ok)
                break;
            const QVariantMap p = result.value.toMap();
            const QString mix = p.value(QStringLiteral("Mix")).toString();
            const double volume = p.value(QStringLiteral("Volume")).toDouble() * 100.0;
            out << "Enabled: " << yesNo(p.value(QStringLiteral("Enabled")).toBool()) << "\n"
                << "Volume: " << QString::number(std::round(volume * 10.0) / 10.0) << "\n"
                << "Kit: " << p.value(QStringLiteral("Kit")).toString() << "\n"
                << "Mix: " << (mix.isEmpty() ? QStringLiteral("none") : mix) << "\n"
                << "Sleeping: " << yesNo(p.value(QStringLiteral("Sleeping")).toBool()) << "\n";
            break;
        }
        }
        if (!result.ok) {
            err << "tappix: " << result.message;
            if (result.notRunning)
                err << " (start it with: tappix)";
            err << "\n";
            return kExitFailed;
        }
    }
    return kExitOk;
}

} // namespace tappix
