#include "platform/x11/x11_focus_source.h"

#include "core/log.h"
#include "platform/x11/x11_capture.h"

#include <QByteArray>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <unistd.h>
#include <xcb/xcb.h>

namespace tappix::x11 {
namespace {

/// The error code of a request naming a window that no longer exists.
constexpr std::uint8_t kBadWindow = 3;
/// The longest property value read, in 32-bit units.
constexpr std::uint32_t kPropertyLength = 1024;

/// A reply freed when it goes.
template <typename T> struct Reply {
    T* value = nullptr;
    xcb_generic_error_t* error = nullptr;
    ~Reply() {
        std::free(value);
        std::free(error);
    }
    bool windowGone() const { return error && error->error_code == kBadWindow; }
};

QByteArray propertyBytes(const xcb_get_property_reply_t* reply) {
    if (!reply || reply->format != 8)
        return {};
    return QByteArray(static_cast<const char*>(xcb_get_property_value(reply)),
                      xcb_get_property_value_length(reply));
}

/// WM_CLASS holds "instance\0class\0"; either may be missing.
QStringList classNames(const xcb_get_property_reply_t* reply) {
    QStringList names;
    for (const QByteArray& part : propertyBytes(reply).split('\0'))
        if (!part.isEmpty())
            names.append(QString::fromLocal8Bit(part));
    return names;
}

std::optional<std::uint32_t> firstCardinal(const xcb_get_property_reply_t* reply) {
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply) < 4)
        return std::nullopt;
    return *static_cast<const std::uint32_t*>(xcb_get_property_value(reply));
}

} // namespace

struct X11FocusSource::Atoms {
    xcb_atom_t activeWindow = XCB_NONE, wmState = XCB_NONE, fullScreen = XCB_NONE,
               clientList = XCB_NONE, pid = XCB_NONE, gtkId = XCB_NONE, kdeFile = XCB_NONE;
};

X11FocusSource::X11FocusSource(QObject* parent) : FocusSource(parent) {
    if (isWaylandSession()) {
        unavailableReason_ = QStringLiteral(
            "Wayland does not tell apps which window is in front, so these two cannot work here.");
        qCInfo(lcApp, "window triggers: a Wayland session shows no window in front");
        return;
    }
    connection_ = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection_)) {
        xcb_disconnect(connection_);
        connection_ = nullptr;
        unavailableReason_ =
            QStringLiteral("Tappix cannot reach an X display to see which window is in front.");
        qCWarning(lcApp, "window triggers: no X display; they stay awake");
        return;
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;

    // Every atom asked for at once, then the answers collected.
    atoms_ = std::make_unique<Atoms>();
    const std::pair<xcb_atom_t*, const char*> names[] = {
        {&atoms_->activeWindow, "_NET_ACTIVE_WINDOW"},
        {&atoms_->wmState, "_NET_WM_STATE"},
        {&atoms_->fullScreen, "_NET_WM_STATE_FULLSCREEN"},
        {&atoms_->clientList, "_NET_CLIENT_LIST"},
        {&atoms_->pid, "_NET_WM_PID"},
        {&atoms_->gtkId, "_GTK_APPLICATION_ID"},
        {&atoms_->kdeFile, "_KDE_NET_WM_DESKTOP_FILE"}};
    xcb_intern_atom_cookie_t cookies[std::size(names)];
    for (std::size_t i = 0; i < std::size(names); ++i)
        cookies[i] = xcb_intern_atom(connection_, 0, std::uint16_t(std::strlen(names[i].second)),
                                     names[i].second);
    for (std::size_t i = 0; i < std::size(names); ++i) {
        Reply<xcb_intern_atom_reply_t> reply;
        reply.value = xcb_intern_atom_reply(connection_, cookies[i], &reply.error);
        if (reply.value)
            *names[i].first = reply.value->atom;
    }

    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &mask);
    notifier_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_),
                                                  QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &X11FocusSource::readEvents);
    activeWindowChanged();
    readEvents(); // anything queued while the first answers came
}

X11FocusSource::~X11FocusSource() {
    disconnectDisplay();
}

void X11FocusSource::disconnectDisplay() {
    notifier_.reset();
    if (connection_)
        xcb_disconnect(connection_);
    connection_ = nullptr;
}

bool X11FocusSource::checkConnection() {
    if (!connection_)
        return false;
    if (!xcb_connection_has_error(connection_))
        return true;
    qCWarning(lcApp, "window triggers: lost the X display; they stay awake");
    disconnectDisplay();
    active_ = 0;
    unavailableReason_ = QStringLiteral("Tappix lost the X display it watched windows on.");
    report(std::nullopt);
    return false;
}

void X11FocusSource::readEvents() {
    if (!checkConnection())
        return;
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        // Errors of unchecked requests (a window gone before it was let go) need nothing.
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY) {
            const auto* change = reinterpret_cast<const xcb_property_notify_event_t*>(event);
            if (change->window == root_ && change->atom == atoms_->activeWindow)
                activeWindowChanged();
            else if (change->window == active_ &&
                     (change->atom == XCB_ATOM_WM_CLASS || change->atom == atoms_->wmState ||
                      change->atom == atoms_->gtkId))
                readActiveWindow();
        }
        std::free(event);
        if (!connection_)
            return;
    }
    checkConnection();
}

void X11FocusSource::activeWindowChanged() {
    Reply<xcb_get_property_reply_t> reply;
    reply.value = xcb_get_property_reply(
        connection_,
        xcb_get_property(connection_, 0, root_, atoms_->activeWindow, XCB_ATOM_WINDOW, 0, 1),
        &reply.error);
    if (!checkConnection())
        return;
    const std::uint32_t window = firstCardinal(reply.value).value_or(0);
    if (window == active_) {
        readActiveWindow(); // a window manager that restarted sets the same one again
        return;
    }
    // Let the previous window go (it may be gone already: its error is ignored) and
    // hear the new one's changes before reading them, so none slips between.
    const std::uint32_t none = XCB_EVENT_MASK_NO_EVENT;
    const std::uint32_t listen = XCB_EVENT_MASK_PROPERTY_CHANGE;
    if (active_ != 0 && active_ != root_)
        xcb_change_window_attributes(connection_, active_, XCB_CW_EVENT_MASK, &none);
    active_ = window;
    if (active_ != 0 && active_ != root_)
        xcb_change_window_attributes(connection_, active_, XCB_CW_EVENT_MASK, &listen);
    readActiveWindow();
}

void X11FocusSource::readActiveWindow() {
    if (active_ == 0) {
        report(std::nullopt);
        return;
    }
    bool vanished = false;
    auto window = readWindow(active_, &vanished);
    if (!checkConnection())
        return;
    if (vanished) {
        qCInfo(lcApp, "window triggers: the window in front (0x%x) went before it could be read",
               active_);
        active_ = 0;
    } else if (window && window->app.id.isEmpty() && !window->ownWindow &&
               unnamedLogged_ != active_) {
        // Once per window: its later property changes are not news.
        unnamedLogged_ = active_;
        qCInfo(lcApp, "window triggers: the window in front (0x%x) names no application", active_);
    }
    report(std::move(window));
}

std::optional<FocusedWindow> X11FocusSource::readWindow(std::uint32_t window, bool* vanished) {
    auto get = [&](xcb_atom_t property, xcb_atom_t type) {
        return xcb_get_property(connection_, 0, window, property, type, 0, kPropertyLength);
    };
    // Asked together, answered together: one round trip.
    const auto classCookie = get(XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    const auto stateCookie = get(atoms_->wmState, XCB_ATOM_ATOM);
    const auto pidCookie = get(atoms_->pid, XCB_ATOM_CARDINAL);
    const auto gtkCookie = get(atoms_->gtkId, XCB_GET_PROPERTY_TYPE_ANY);
    const auto kdeCookie = get(atoms_->kdeFile, XCB_GET_PROPERTY_TYPE_ANY);
    Reply<xcb_get_property_reply_t> classes, state, pid, gtk, kde;
    classes.value = xcb_get_property_reply(connection_, classCookie, &classes.error);
    state.value = xcb_get_property_reply(connection_, stateCookie, &state.error);
    pid.value = xcb_get_property_reply(connection_, pidCookie, &pid.error);
    gtk.value = xcb_get_property_reply(connection_, gtkCookie, &gtk.error);
    kde.value = xcb_get_property_reply(connection_, kdeCookie, &kde.error);
    for (const auto* reply : {&classes, &state, &pid, &gtk, &kde}) {
        if (reply->windowGone() || (!reply->value && !reply->error)) {
            *vanished = reply->windowGone();
            return std::nullopt;
        }
    }

    FocusedWindow out;
    out.classes = classNames(classes.value);
    QString hinted = QString::fromUtf8(propertyBytes(gtk.value));
    if (hinted.isEmpty()) {
        // KDE names the desktop file itself, possibly with its suffix or as a path.
        hinted = QString::fromUtf8(propertyBytes(kde.value));
        hinted = hinted.section(QLatin1Char('/'), -1);
        if (hinted.endsWith(QLatin1String(".desktop")))
            hinted.chop(8);
    }
    if (!hinted.isEmpty() || !out.classes.isEmpty())
        out.app = apps_.identify(hinted, out.classes);
    if (state.value && state.value->format == 32) {
        const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(state.value));
        const int count = xcb_get_property_value_length(state.value) / 4;
        out.fullScreen = std::find(atoms, atoms + count, atoms_->fullScreen) != atoms + count;
    }
    out.ownWindow = firstCardinal(pid.value) == std::uint32_t(::getpid());
    return out;
}

std::vector<AppIdentity> X11FocusSource::runningApps() {
    std::vector<AppIdentity> out;
    if (!checkConnection())
        return out;
    apps_.rescan();
    Reply<xcb_get_property_reply_t> list;
    list.value = xcb_get_property_reply(connection_,
                                        xcb_get_property(connection_, 0, root_, atoms_->clientList,
                                                         XCB_ATOM_WINDOW, 0, kPropertyLength),
                                        &list.error);
    if (!list.value || list.value->format != 32)
        return out;
    const auto* windows = static_cast<const std::uint32_t*>(xcb_get_property_value(list.value));
    const int count = xcb_get_property_value_length(list.value) / 4;
    for (int i = 0; i < count; ++i) {
        bool vanished = false;
        const auto window = readWindow(windows[i], &vanished);
        if (!window || window->ownWindow || window->app.id.isEmpty())
            continue;
        if (std::none_of(out.begin(), out.end(),
                         [&](const AppIdentity& a) { return a.id == window->app.id; }))
            out.push_back(window->app);
    }
    std::sort(out.begin(), out.end(), [](const AppIdentity& a, const AppIdentity& b) {
        return QString::compare(a.name, b.name, Qt::CaseInsensitive) < 0;
    });
    // Replies read here may have queued events behind them.
    QMetaObject::invokeMethod(this, &X11FocusSource::readEvents, Qt::QueuedConnection);
    return out;
}

AppIdentity X11FocusSource::describe(const QString& id) const {
    return apps_.describe(id);
}

} // namespace tappix::x11
