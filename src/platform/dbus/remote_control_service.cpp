#include "platform/dbus/remote_control_service.h"

#include "core/log.h"
#include "kits/soundpack_store.h"
#include "settings/settings_page.h"
#include "settings/settings_store.h"

#include <QDBusMessage>
#include <QDBusVariant>
#include <QMetaObject>
#include <cmath>
#include <utility>

namespace tappix {
namespace {

const QString kPropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kEnabled = QStringLiteral("Enabled");
const QString kVolume = QStringLiteral("Volume");
const QString kKit = QStringLiteral("Kit");
const QString kMix = QStringLiteral("Mix");
const QString kSleeping = QStringLiteral("Sleeping");
const QString kUnderruns = QStringLiteral("Underruns");

QDBusMessage error(const QDBusMessage& message, const char* name, const QString& text) {
    return message.createErrorReply(QString::fromLatin1(name), text);
}

QDBusMessage invalidArgs(const QDBusMessage& message, const QString& text) {
    return message.createErrorReply(QDBusError::InvalidArgs, text);
}

// Volumes are stored as floats: report 0.3, not 0.30000001192092896.
double reportedVolume(float volume) {
    return std::round(static_cast<double>(volume) * 1e6) / 1e6;
}

// The arguments of `message` have exactly these D-Bus types.
bool hasSignature(const QDBusMessage& message, const char* signature) {
    return message.signature() == QLatin1String(signature);
}

} // namespace

RemoteControlService::RemoteControlService(SettingsStore& settings, const SoundpackStore& packs,
                                           Actions actions, QObject* parent)
    : QDBusVirtualObject(parent), settings_(settings), packs_(packs), actions_(std::move(actions)),
      bus_(QString()) {
    announced_ = properties();
    // Every path that changes one of these settings ends in one of these signals.
    connect(&settings_, &SettingsStore::isEnabledChanged, this,
            &RemoteControlService::announceChanges);
    connect(&settings_, &SettingsStore::volumeChanged, this,
            &RemoteControlService::announceChanges);
    connect(&settings_, &SettingsStore::selectedPackIdChanged, this,
            &RemoteControlService::announceChanges);
    connect(&settings_, &SettingsStore::tappixMixChanged, this,
            &RemoteControlService::announceChanges);
}

RemoteControlService::~RemoteControlService() {
    if (published_) {
        bus_.unregisterObject(QString::fromLatin1(kObjectPath));
        bus_.unregisterService(QString::fromLatin1(kServiceName));
    }
}

bool RemoteControlService::publish(QDBusConnection bus) {
    bus_ = bus;
    if (!bus_.isConnected()) {
        qCWarning(lcApp, "no session bus: remote control (tappix --toggle and friends) is off");
        return false;
    }
    if (!bus_.registerVirtualObject(QString::fromLatin1(kObjectPath), this)) {
        qCWarning(lcApp, "remote control: could not register %s: %s", kObjectPath,
                  qPrintable(bus_.lastError().message()));
        return false;
    }
    published_ = true;
    if (!bus_.registerService(QString::fromLatin1(kServiceName))) {
        qCWarning(lcApp, "remote control: the name %s is taken: %s", kServiceName,
                  qPrintable(bus_.lastError().message()));
        return false;
    }
    qCInfo(lcApp, "remote control on the session bus as %s", kServiceName);
    return true;
}

QVariantMap RemoteControlService::properties() const {
    return {
        {kEnabled, settings_.isEnabled()},
        {kVolume, reportedVolume(settings_.volume())},
        {kKit, settings_.selectedPackIdText()},
        {kMix, settings_.activeMixId().value_or(QString())},
        {kSleeping, actions_.isSleeping && actions_.isSleeping()},
        {kUnderruns, static_cast<qulonglong>(actions_.underruns ? actions_.underruns() : 0)},
    };
}

void RemoteControlService::sleepingChanged() {
    announceChanges();
}

void RemoteControlService::announceChanges() {
    QVariantMap now = properties();
    // A counter read on demand: announcing each underrun would flood the bus.
    now.remove(kUnderruns);
    QVariantMap changed;
    for (auto it = now.begin(); it != now.end(); ++it)
        if (announced_.value(it.key()) != it.value())
            changed.insert(it.key(), it.value());
    announced_ = now;
    if (changed.isEmpty() || !published_)
        return;
    QDBusMessage signal =
        QDBusMessage::createSignal(QString::fromLatin1(kObjectPath), kPropertiesInterface,
                                   QStringLiteral("PropertiesChanged"));
    signal << QString::fromLatin1(kInterface) << changed << QStringList();
    bus_.send(signal);
}

QString RemoteControlService::introspect(const QString&) const {
    // The connection adds Properties (with PropertiesChanged), Introspectable and Peer.
    return QStringLiteral("  <interface name=\"app.morvane.tappix.Control\">\n"
                          "    <method name=\"Toggle\"/>\n"
                          "    <method name=\"ShowPanel\"/>\n"
                          "    <method name=\"OpenSettings\">\n"
                          "      <arg name=\"page\" type=\"s\" direction=\"in\"/>\n"
                          "    </method>\n"
                          "    <method name=\"Quit\"/>\n"
                          "    <property name=\"Enabled\" type=\"b\" access=\"readwrite\"/>\n"
                          "    <property name=\"Volume\" type=\"d\" access=\"readwrite\"/>\n"
                          "    <property name=\"Kit\" type=\"s\" access=\"readwrite\"/>\n"
                          "    <property name=\"Mix\" type=\"s\" access=\"readwrite\"/>\n"
                          "    <property name=\"Sleeping\" type=\"b\" access=\"read\"/>\n"
                          "    <property name=\"Underruns\" type=\"t\" access=\"read\">\n"
                          "      <annotation "
                          "name=\"org.freedesktop.DBus.Property.EmitsChangedSignal\" "
                          "value=\"false\"/>\n"
                          "    </property>\n"
                          "  </interface>\n");
}

bool RemoteControlService::handleMessage(const QDBusMessage& message,
                                         const QDBusConnection& connection) {
    if (message.type() != QDBusMessage::MethodCallMessage)
        return false;
    const QString interface = message.interface();
    const QString member = message.member();
    QDBusMessage reply;

    if (interface == kPropertiesInterface) {
        const QVariantList args = message.arguments();
        const QString target = args.value(0).toString();
        const bool ours = target.isEmpty() || target == QLatin1String(kInterface);
        if (member == QLatin1String("GetAll") && hasSignature(message, "s")) {
            reply = message.createReply(QVariant::fromValue(ours ? properties() : QVariantMap()));
        } else if (member == QLatin1String("Get") && hasSignature(message, "ss")) {
            const QVariantMap all = properties();
            const QString name = args.value(1).toString();
            if (ours && all.contains(name))
                reply = message.createReply(QVariant::fromValue(QDBusVariant(all.value(name))));
            else
                reply = message.createErrorReply(QDBusError::UnknownProperty,
                                                 QStringLiteral("No property \"%1\"").arg(name));
        } else if (member == QLatin1String("Set") && hasSignature(message, "ssv")) {
            const QString name = args.value(1).toString();
            if (!ours)
                reply = message.createErrorReply(QDBusError::UnknownProperty,
                                                 QStringLiteral("No property \"%1\"").arg(name));
            else
                reply = set(message, name, args.value(2).value<QDBusVariant>().variant());
        } else {
            return false;
        }
    } else if (interface.isEmpty() || interface == QLatin1String(kInterface)) {
        reply = call(message);
    } else {
        return false; // Introspectable and Peer are the connection's
    }

    connection.send(reply);
    // Act after the caller has its answer: opening a window the first time loads
    // its views, which can outlast a caller's timeout on a loaded machine, and a
    // quit must not leave the caller waiting for a process that is gone.
    if (afterReply_)
        QMetaObject::invokeMethod(this, std::exchange(afterReply_, {}), Qt::QueuedConnection);
    return true;
}

QDBusMessage RemoteControlService::call(const QDBusMessage& message) {
    const QString member = message.member();
    const bool noArgs = hasSignature(message, "");
    if (member == QLatin1String("Toggle") && noArgs) {
        settings_.setIsEnabled(!settings_.isEnabled());
        qCInfo(lcApp, "remote control: sounds %s", settings_.isEnabled() ? "on" : "off");
        return message.createReply();
    }
    if (member == QLatin1String("ShowPanel") && noArgs) {
        afterReply_ = actions_.showPanel;
        return message.createReply();
    }
    if (member == QLatin1String("Quit") && noArgs) {
        qCInfo(lcApp, "remote control: quit");
        afterReply_ = actions_.quit;
        return message.createReply();
    }
    if (member == QLatin1String("OpenSettings") && hasSignature(message, "s")) {
        const QString page = message.arguments().value(0).toString();
        if (!page.isEmpty() && !SettingsPage::isKnown(page))
            return error(message, kErrorUnknownPage,
                         QStringLiteral("No settings page \"%1\"; the pages are: %2")
                             .arg(page, SettingsPage::ids().join(QStringLiteral(", "))));
        if (actions_.openSettings)
            afterReply_ = [open = actions_.openSettings, page] { open(page); };
        return message.createReply();
    }
    if (member == QLatin1String("Toggle") || member == QLatin1String("ShowPanel") ||
        member == QLatin1String("Quit") || member == QLatin1String("OpenSettings"))
        return invalidArgs(message, QStringLiteral("Wrong arguments for %1").arg(member));
    return message.createErrorReply(QDBusError::UnknownMethod,
                                    QStringLiteral("No method \"%1\"").arg(member));
}

QDBusMessage RemoteControlService::set(const QDBusMessage& message, const QString& name,
                                       const QVariant& value) {
    const auto type = value.metaType().id();
    if (name == kEnabled) {
        if (type != QMetaType::Bool)
            return invalidArgs(message, QStringLiteral("Enabled takes a boolean"));
        settings_.setIsEnabled(value.toBool());
    } else if (name == kVolume) {
        bool numeric = false;
        const double volume = value.toDouble(&numeric);
        if (type == QMetaType::Bool || type == QMetaType::QString || !numeric)
            return invalidArgs(message, QStringLiteral("Volume takes a number from 0 to 1"));
        if (!std::isfinite(volume) || volume < 0.0 || volume > 1.0)
            return error(message, kErrorInvalidVolume,
                         QStringLiteral("Volume %1 is outside 0 to 1").arg(volume));
        settings_.setVolume(static_cast<float>(volume));
    } else if (name == kKit) {
        if (type != QMetaType::QString)
            return invalidArgs(message, QStringLiteral("Kit takes a kit id"));
        const QString id = value.toString();
        const Soundpack* pack = packs_.find(id.toStdString());
        if (!pack || pack->config.metadata.category == "mouse") {
            QStringList known;
            for (const Soundpack& p : packs_.packs())
                if (p.config.metadata.category != "mouse")
                    known << QString::fromStdString(p.config.id);
            return error(message, kErrorUnknownKit,
                         QStringLiteral("No kit \"%1\"; the kits are: %2")
                             .arg(id, known.join(QStringLiteral(", "))));
        }
        settings_.setSelectedPackId(id);
    } else if (name == kMix) {
        if (type != QMetaType::QString)
            return invalidArgs(message, QStringLiteral("Mix takes a mix id, or \"\" for none"));
        const QString id = value.toString();
        if (id.isEmpty()) {
            settings_.setActiveMix(std::nullopt);
        } else {
            QStringList known;
            for (const SoundMix& mix : settings_.mixes())
                known << mix.id;
            if (!known.contains(id))
                return error(message, kErrorUnknownMix,
                             known.isEmpty()
                                 ? QStringLiteral("No mix \"%1\"; there are no mixes yet").arg(id)
                                 : QStringLiteral("No mix \"%1\"; the mixes are: %2")
                                       .arg(id, known.join(QStringLiteral(", "))));
            settings_.setActiveMix(id);
        }
    } else if (name == kSleeping || name == kUnderruns) {
        return message.createErrorReply(QDBusError::PropertyReadOnly,
                                        QStringLiteral("%1 is read-only").arg(name));
    } else {
        return message.createErrorReply(QDBusError::UnknownProperty,
                                        QStringLiteral("No property \"%1\"").arg(name));
    }
    qCInfo(lcApp, "remote control: %s set", qPrintable(name));
    return message.createReply();
}

} // namespace tappix
