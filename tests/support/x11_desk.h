#pragma once

#include "support/core_app.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>
#include <xcb/xcb.h>

namespace tappix::test {

/// Writes `dataHome`/applications/org.example.Notes.desktop: "Quiet Notes", the app
/// whose windows have the class "Notes", with `icon`. False when it cannot be written.
inline bool writeNotesEntry(const QString& dataHome, const QByteArray& icon = {}) {
    QDir().mkpath(dataHome + QStringLiteral("/applications"));
    QFile entry(dataHome + QStringLiteral("/applications/org.example.Notes.desktop"));
    return entry.open(QIODevice::WriteOnly) &&
           entry.write("[Desktop Entry]\nType=Application\nName=Quiet Notes\nIcon=" + icon +
                       "\nStartupWMClass=Notes\nExec=notes\n") > 0;
}

/// A client of the test's X server that makes windows and sets their properties, as a
/// window manager would: the test decides which window is in front.
class Desk {
public:
    /// Connects to the display DISPLAY names.
    Desk() : c_(xcb_connect(nullptr, nullptr)) {
        root_ = xcb_setup_roots_iterator(xcb_get_setup(c_)).data->root;
    }
    ~Desk() { xcb_disconnect(c_); }

    /// A new top-level window with `classes` ("instance\0class", `length` bytes) as
    /// its WM_CLASS; none when null.
    xcb_window_t window(const char* classes, std::size_t length) {
        const xcb_window_t w = xcb_generate_id(c_);
        xcb_create_window(c_, XCB_COPY_FROM_PARENT, w, root_, 0, 0, 50, 50, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        if (classes)
            setClass(w, classes, length);
        xcb_flush(c_);
        return w;
    }
    /// Replaces a window's WM_CLASS.
    void setClass(xcb_window_t w, const char* classes, std::size_t length) {
        xcb_change_property(c_, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            std::uint32_t(length), classes);
        sync();
    }
    /// Sets a 32-bit property of `type` on `w`.
    void set(xcb_window_t w, const char* name, xcb_atom_t type, std::vector<std::uint32_t> values) {
        xcb_change_property(c_, XCB_PROP_MODE_REPLACE, w, atom(name), type, 32,
                            std::uint32_t(values.size()), values.data());
        sync();
    }
    /// Puts `w` in front, as a window manager announces it.
    void activate(xcb_window_t w) { set(root_, "_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW, {w}); }
    /// Takes `_NET_ACTIVE_WINDOW` away, as a window manager that quits or restarts does.
    void clearActive() {
        xcb_delete_property(c_, root_, atom("_NET_ACTIVE_WINDOW"));
        sync();
    }
    /// Destroys `w` and waits until the server has.
    void destroy(xcb_window_t w) {
        xcb_destroy_window(c_, w);
        sync();
    }
    /// Waits until the server has done what was asked so far: another client (the code
    /// under test) reading right after sees the change.
    void sync() { std::free(xcb_get_input_focus_reply(c_, xcb_get_input_focus(c_), nullptr)); }
    /// The atom named `name`.
    xcb_atom_t atom(const char* name) {
        auto* reply = xcb_intern_atom_reply(
            c_, xcb_intern_atom(c_, 0, std::uint16_t(std::strlen(name)), name), nullptr);
        const xcb_atom_t a = reply ? reply->atom : XCB_NONE;
        std::free(reply);
        return a;
    }
    /// The root window.
    xcb_window_t root() const { return root_; }

private:
    xcb_connection_t* c_;
    xcb_window_t root_ = 0;
};

} // namespace tappix::test
