#include "input/keyboard_access.h"

namespace tappix {

KeyboardAccess KeyboardAccess::from(const Facts& facts) {
    if (!facts.keyboards)
        return {};
    if (facts.readable)
        return {State::readable, facts.group};
    if (facts.group.empty())
        return {};
    // Holding the group and still refused: the mode, an ACL or a security module says
    // no, and no group change helps.
    if (facts.groupInProcess)
        return {State::unavailable, facts.group};
    return {facts.memberInDatabase ? State::memberNotInSession : State::notMember, facts.group};
}

std::string_view KeyboardAccess::name(State state) {
    switch (state) {
    case State::readable:
        return "readable";
    case State::notMember:
        return "notMember";
    case State::memberNotInSession:
        return "memberNotInSession";
    case State::unavailable:
        break;
    }
    return "unavailable";
}

} // namespace tappix
