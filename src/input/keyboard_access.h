#pragma once

#include <string>
#include <string_view>

namespace tappix {

/// Whether this process may read the keyboards' device nodes, and if not, what the one
/// group change that would let it is. Worked out from facts the platform gathers, so
/// every place that shows it (the first-run window, the panel, tappix-doctor) agrees.
struct KeyboardAccess {
    enum class State {
        /// A keyboard can be read now.
        readable,
        /// The keyboards belong to `group`, and the user is not in it.
        notMember,
        /// The user is in `group`, but this process was started before they joined.
        memberNotInSession,
        /// No keyboard, or none that joining a group would open (a node only root may
        /// read, access refused although the group is held).
        unavailable,
    };

    /// What the platform found.
    struct Facts {
        /// Some keyboard device node exists.
        bool keyboards = false;
        /// Some keyboard device node can be opened for reading by this process.
        bool readable = false;
        /// The group whose members may read the keyboards' nodes; empty when no group
        /// other than root's may.
        std::string group;
        /// Whether the user is in `group` by the group database.
        bool memberInDatabase = false;
        /// Whether this process holds `group`.
        bool groupInProcess = false;
    };

    State state = State::unavailable;
    /// The group to join, or joined; empty when no group change would help.
    std::string group;

    /// The state the facts make.
    static KeyboardAccess from(const Facts& facts);
    /// "readable", "notMember", "memberNotInSession" or "unavailable".
    static std::string_view name(State state);

    friend bool operator==(const KeyboardAccess&, const KeyboardAccess&) = default;
};

/// How asking the system to add the user to the keyboards' group ended.
enum class GroupJoinResult {
    /// The user is in the group now.
    joined,
    /// The user closed the password prompt.
    cancelled,
    /// The password was wrong, or the system's policy says no.
    refused,
    /// No password prompt could be shown (no polkit agent runs in this session).
    noPrompt,
    /// Anything else went wrong; nothing changed.
    failed,
};

} // namespace tappix
