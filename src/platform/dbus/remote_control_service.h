#pragma once

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <cstdint>
#include <functional>

namespace tappix {

class SettingsStore;
class SoundpackStore;

/// Tappix's remote control on the session bus, so desktop shortcuts, bars and
/// scripts can drive it: name `app.morvane.tappix`, object `/app/morvane/tappix`,
/// interface `app.morvane.tappix.Control` with methods Toggle, ShowPanel,
/// OpenSettings(s page) and Quit, and properties Enabled (b), Volume (d, 0-1), Kit
/// (s), Mix (s, "" for none), all read-write, and Sleeping (b) and Underruns (t, how
/// often the sound output ran dry since start; not announced), read-only.
///
/// Writes go through the settings store, so they persist like any other change.
/// Bad input (a volume outside 0-1, an unknown kit, mix or page) answers a named
/// error and changes nothing. org.freedesktop.DBus.Properties.PropertiesChanged is
/// emitted for every change of a property, whoever made it. Main thread only.
class RemoteControlService final : public QDBusVirtualObject {
    Q_OBJECT
public:
    static constexpr const char* kServiceName = "app.morvane.tappix";
    static constexpr const char* kObjectPath = "/app/morvane/tappix";
    static constexpr const char* kInterface = "app.morvane.tappix.Control";

    /// The error names of refused input.
    static constexpr const char* kErrorInvalidVolume = "app.morvane.tappix.Error.InvalidVolume";
    static constexpr const char* kErrorUnknownKit = "app.morvane.tappix.Error.UnknownKit";
    static constexpr const char* kErrorUnknownMix = "app.morvane.tappix.Error.UnknownMix";
    static constexpr const char* kErrorUnknownPage = "app.morvane.tappix.Error.UnknownPage";

    /// What the application does for the methods that are not a setting. ShowPanel,
    /// OpenSettings and Quit answer first and act after, on the main thread.
    struct Actions {
        std::function<void()> showPanel;
        std::function<void(const QString& page)> openSettings;
        std::function<void()> quit;
        std::function<bool()> isSleeping;
        std::function<std::uint64_t()> underruns;
    };

    /// A service over these stores; nothing is on the bus until `publish`. Main thread.
    RemoteControlService(SettingsStore& settings, const SoundpackStore& packs, Actions actions,
                         QObject* parent = nullptr);
    ~RemoteControlService() override;

    /// Registers the object and claims the name on `bus`; false (logged) when the
    /// bus is not connected or another process holds the name. Main thread.
    bool publish(QDBusConnection bus);

    /// Announces a change of the sleep state (the monitor tells the application,
    /// which tells this). Main thread.
    void sleepingChanged();

    /// The current value of every property, by name. Main thread.
    QVariantMap properties() const;

    /// The control interface's introspection; the connection adds the standard ones.
    QString introspect(const QString& path) const override;
    /// Answers the control interface and Properties; leaves the rest to the connection.
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

private:
    QDBusMessage set(const QDBusMessage& message, const QString& name, const QVariant& value);
    QDBusMessage call(const QDBusMessage& message);
    void announceChanges();

    SettingsStore& settings_;
    const SoundpackStore& packs_;
    Actions actions_;
    /// What the call being answered does once its reply is sent.
    std::function<void()> afterReply_;
    QDBusConnection bus_;
    bool published_ = false;
    QVariantMap announced_;
};

} // namespace tappix
