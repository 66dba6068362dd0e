#include "core/log.h"

Q_LOGGING_CATEGORY(lcEvents, "app.morvane.tappix.events", QtInfoMsg)
Q_LOGGING_CATEGORY(lcAudio, "app.morvane.tappix.audio", QtInfoMsg)
Q_LOGGING_CATEGORY(lcEngine, "app.morvane.tappix.engine", QtInfoMsg)
Q_LOGGING_CATEGORY(lcSoundpacks, "app.morvane.tappix.soundpacks", QtInfoMsg)
Q_LOGGING_CATEGORY(lcSettings, "app.morvane.tappix.settings", QtInfoMsg)
Q_LOGGING_CATEGORY(lcApp, "app.morvane.tappix.app", QtInfoMsg)
