#pragma once

#include <QObject>
#include <QString>

namespace tappix {

/// The panel's own state, shared with its view: which page shows, why Tappix sleeps,
/// whether keys can be heard at all, and the ways out of the panel. The panel's
/// commands arrive here and leave as signals the application wires. Main thread only.
class MenuPanelModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString page READ page WRITE setPage NOTIFY pageChanged)
    Q_PROPERTY(int panelHeight READ panelHeight NOTIFY panelHeightChanged)
    Q_PROPERTY(QString sleepReason READ sleepReason NOTIFY sleepReasonChanged)
    Q_PROPERTY(bool captureIsPossible READ captureIsPossible NOTIFY captureIsPossibleChanged)
    Q_PROPERTY(QString currentKitName READ currentKitName NOTIFY currentKitNameChanged)

public:
    /// The panel's width in every page.
    static constexpr int kWidth = 320;
    /// The main page's height.
    static constexpr int kMainHeight = 418;
    /// The kits page's height.
    static constexpr int kKitsHeight = 470;
    /// The mixes page: a fixed part, a row per mix, and a ceiling.
    static constexpr int kMixesBaseHeight = 168;
    static constexpr int kMixRowHeight = 40;
    static constexpr int kMixesMaxHeight = 420;

    /// Starts on the main page, awake, with no saved mixes.
    explicit MenuPanelModel(QObject* parent = nullptr);

    /// "main", "kits" or "mixes".
    QString page() const { return page_; }
    /// Shows another page; an unknown name shows the main page.
    void setPage(const QString& page);
    /// The panel's height for the page showing.
    int panelHeight() const;
    /// The height a page takes with `mixCount` saved mixes.
    static int heightOf(const QString& page, int mixCount);

    /// The sleep monitor's reason while quiet, else empty.
    QString sleepReason() const { return sleepReason_; }
    void setSleepReason(const QString& reason);

    /// Whether keys can be captured; the panel asks for access while they cannot.
    bool captureIsPossible() const { return captureIsPossible_; }
    void setCaptureIsPossible(bool possible);

    /// The main kit's name, "None" when no kit is loaded.
    QString currentKitName() const { return currentKitName_; }
    void setCurrentKitName(const QString& name);

    /// How many mixes are saved (the mixes page grows with them).
    void setMixCount(int count);

    /// The panel asks for the settings window on `page`.
    Q_INVOKABLE void openPage(const QString& page) { Q_EMIT openPageRequested(page); }
    /// The panel asks for the settings window on its last page.
    Q_INVOKABLE void openSettings() { Q_EMIT openSettingsRequested(); }
    /// The panel's permission prompt was chosen.
    Q_INVOKABLE void requestPermission() { Q_EMIT permissionRequested(); }
    /// The panel wants to close.
    Q_INVOKABLE void dismiss() { Q_EMIT dismissRequested(); }
    /// "Quit" was chosen.
    Q_INVOKABLE void quit() { Q_EMIT quitRequested(); }

Q_SIGNALS:
    void pageChanged();
    void panelHeightChanged();
    void sleepReasonChanged();
    void captureIsPossibleChanged();
    void currentKitNameChanged();
    void openPageRequested(const QString& page);
    void openSettingsRequested();
    void permissionRequested();
    void dismissRequested();
    void quitRequested();

private:
    QString page_ = QStringLiteral("main");
    QString sleepReason_;
    bool captureIsPossible_ = true;
    QString currentKitName_ = QStringLiteral("None");
    int mixCount_ = 0;
};

} // namespace tappix
