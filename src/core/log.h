#pragma once

#include <QLoggingCategory>

// One logging category per service. Debug lines are off unless enabled with
// QT_LOGGING_RULES="app.morvane.tappix.*.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcEvents)
Q_DECLARE_LOGGING_CATEGORY(lcAudio)
Q_DECLARE_LOGGING_CATEGORY(lcEngine)
Q_DECLARE_LOGGING_CATEGORY(lcSoundpacks)
Q_DECLARE_LOGGING_CATEGORY(lcSettings)
Q_DECLARE_LOGGING_CATEGORY(lcApp)
