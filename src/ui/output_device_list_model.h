#pragma once

#include "audio/audio_device_manager.h"

#include <QAbstractListModel>
#include <QHash>
#include <QString>
#include <QThreadPool>
#include <vector>

namespace tappix {

class AudioOutput;
class SettingsStore;

/// The output devices a user can send Tappix's sound to: "System default" first, then
/// every output device the server offers, by name. The chosen device (the setting
/// `outputDeviceUID`) is always listed: while it is not present it stays greyed under
/// the name it was last seen with (its uid if never seen), and sound goes to the default.
///
/// The devices are asked for off the main thread (`busy` while a query is out), again
/// whenever the device manager reports a change, the choice changes or `refresh` is
/// called; a change during a query asks once more after it. Without a sound server the
/// list is just "System default". Main thread only.
class OutputDeviceListModel final : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(double chosenLatencyMs READ chosenLatencyMs NOTIFY latencyChanged)
    Q_PROPERTY(bool latencyIsHigh READ latencyIsHigh NOTIFY latencyChanged)
    Q_PROPERTY(int currentIndex READ currentIndex NOTIFY currentIndexChanged)

public:
    /// The roles views read.
    enum Role {
        UidRole = Qt::UserRole + 1,
        NameRole,
        IsAvailableRole,
        IsChosenRole,
    };

    /// The first row's name.
    static inline const QString kSystemDefaultName = QStringLiteral("System default");
    /// Above this output latency sound lags the keys noticeably (typical of Bluetooth).
    static constexpr double kHighLatencyMs = 50.0;
    /// `chosenLatencyMs` while the latency is not known.
    static constexpr double kUnknownLatency = -1.0;

    /// Lists the devices `devices` reports and follows `settings`; `output`, the stream
    /// sound plays on, reports the latency. Either may be null (nothing listed but the
    /// default; latency unknown). Both must outlive the model. Starts the first query.
    OutputDeviceListModel(SettingsStore& settings, AudioDeviceManager* devices,
                          const AudioOutput* output, QObject* parent = nullptr);
    /// Stops the change reports and waits for a query still out.
    ~OutputDeviceListModel() override;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// Whether a query is out.
    bool busy() const { return busy_; }
    /// The latency of the output sound plays on, as the server reports it (the sink's
    /// plus the stream's), in milliseconds, or `kUnknownLatency`. As of the last query.
    double chosenLatencyMs() const { return latencyMs_; }
    /// Whether `chosenLatencyMs` is above `kHighLatencyMs`.
    bool latencyIsHigh() const { return latencyMs_ > kHighLatencyMs; }
    /// The chosen device's row.
    int currentIndex() const { return currentIndex_; }

    /// Sends sound to the device `uid` from now on; "" follows the system default.
    Q_INVOKABLE void choose(const QString& uid);
    /// Asks for the devices again.
    Q_INVOKABLE void refresh();

Q_SIGNALS:
    /// `busy` changed.
    void busyChanged();
    /// `chosenLatencyMs` (and maybe `latencyIsHigh`) changed.
    void latencyChanged();
    /// `currentIndex` changed.
    void currentIndexChanged();

private:
    struct Row {
        QString uid, name;
        bool isAvailable = true;
        bool isChosen = false;

        friend bool operator==(const Row&, const Row&) = default;
    };
    /// One query's answers.
    struct Snapshot {
        std::vector<AudioDeviceManager::Device> devices;
        QString defaultName;
        double latencyMs = kUnknownLatency;
    };

    void startQuery();
    void finishQuery(const Snapshot& snapshot);
    /// The rows for the last answers and the current choice.
    std::vector<Row> buildRows() const;
    /// Changes the rows to `next` row by row, so views keep their place.
    void applyRows(std::vector<Row> next);
    void setBusy(bool busy);

    SettingsStore& settings_;
    AudioDeviceManager* devices_;
    const AudioOutput* output_;
    QThreadPool queries_;
    bool busy_ = false;
    bool askAgain_ = false;
    Snapshot last_;
    double latencyMs_ = kUnknownLatency;
    // Every device's name as last seen, by uid, for a chosen device that went away.
    QHash<QString, QString> seenNames_;
    std::vector<Row> rows_;
    int currentIndex_ = 0;
};

} // namespace tappix
