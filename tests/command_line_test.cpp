// What each command line asks for, before anything talks to a running Tappix.

#include "app/command_line.h"

#include <gtest/gtest.h>

using namespace tappix;
using Mode = CommandLine::Mode;
using Kind = CommandLine::Request::Kind;
using Request = CommandLine::Request;

namespace {

CommandLine parse(QStringList arguments) {
    arguments.prepend(QStringLiteral("tappix"));
    return CommandLine(arguments);
}

} // namespace

TEST(CommandLine, ModesAndExitKinds) {
    const struct {
        QStringList arguments;
        Mode mode;
    } cases[] = {
        {{}, Mode::start},
        {{"-platform", "xcb"}, Mode::start}, // Qt's own options pass through
        {{"--help"}, Mode::help},
        {{"-h"}, Mode::help},
        {{"--version"}, Mode::version},
        {{"--toggle", "--help"}, Mode::help},
        {{"--bogus"}, Mode::usageError},
        {{"--volume"}, Mode::usageError}, // missing value
        {{"stray"}, Mode::usageError},    // a page without --settings
        {{"--settings", "a", "b"}, Mode::usageError},
        {{"--on", "--off"}, Mode::usageError},
        {{"--toggle", "--on"}, Mode::usageError},
        {{"--kit", "a", "--kit", "b"}, Mode::usageError},
        {{"--volume", "100.01"}, Mode::badValue},
        {{"--volume", "-1"}, Mode::badValue},
        {{"--volume", "loud"}, Mode::badValue},
        {{"--volume", "nan"}, Mode::badValue},
        {{"--status"}, Mode::remote},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parse(c.arguments).mode(), c.mode) << c.arguments.join(' ').toStdString();
    EXPECT_TRUE(parse({"--on", "--off"}).error().contains("--toggle, --on and --off"));
    EXPECT_TRUE(parse({"--volume", "150"}).requests().empty());
}

TEST(CommandLine, RequestsInTheirFixedOrder) {
    const struct {
        QStringList arguments;
        std::vector<Request> requests;
    } cases[] = {
        {{"--volume", "30"}, {{Kind::setVolume, 0.3}}},
        {{"--volume", "100"}, {{Kind::setVolume, 1.0}}},
        {{"--volume", "100%"}, {{Kind::setVolume, 1.0}}},
        {{"--volume=0"}, {{Kind::setVolume, 0.0}}},
        {{"--mix", "none"}, {{Kind::setMix, QString()}}},
        {{"--mix", "night"}, {{Kind::setMix, QString("night")}}},
        {{"--settings"}, {{Kind::openSettings, QString()}}},
        {{"--settings", "about"}, {{Kind::openSettings, QString("about")}}},
        {{"about", "--settings"}, {{Kind::openSettings, QString("about")}}},
        {{"--off"}, {{Kind::setEnabled, false}}},
        // Kit and mix first (Tappix may refuse them), status after the changes, quit last.
        {{"--quit", "--status", "--on", "--volume", "5", "--mix", "m", "--kit", "k", "--panel"},
         {{Kind::setKit, QString("k")},
          {Kind::setMix, QString("m")},
          {Kind::setVolume, 0.05},
          {Kind::setEnabled, true},
          {Kind::showPanel, {}},
          {Kind::status, {}},
          {Kind::quit, {}}}},
        {{"--toggle", "--settings", "look"},
         {{Kind::toggle, {}}, {Kind::openSettings, QString("look")}}},
    };
    for (const auto& c : cases) {
        const CommandLine line = parse(c.arguments);
        EXPECT_EQ(line.mode(), Mode::remote) << c.arguments.join(' ').toStdString();
        EXPECT_EQ(line.requests(), c.requests) << c.arguments.join(' ').toStdString();
    }
}
