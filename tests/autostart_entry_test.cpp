// Tappix's autostart entry as desktops read it: present and not Hidden means "start at
// login". A folder that cannot be written is driven through the Behaviour page in
// tests/ui/test_settings_pages.py.

#include "platform/xdg/autostart_entry.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

using namespace tappix;

TEST(AutostartEntry, WrittenReadAndRemovedAsDesktopsDo) {
    QTemporaryDir dir;
    AutostartEntry entry(dir.filePath("autostart/app.morvane.tappix.desktop"));
    EXPECT_FALSE(entry.isEnabled());
    // Removing what is not there is no failure.
    EXPECT_TRUE(entry.setEnabled(false, "/usr/bin/tappix"));

    ASSERT_TRUE(entry.setEnabled(true, "/opt/My Apps/tappix"));
    EXPECT_TRUE(entry.isEnabled());
    QFile file(entry.path());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    EXPECT_TRUE(text.startsWith("[Desktop Entry]\n"));
    EXPECT_TRUE(text.contains("Exec=\"/opt/My Apps/tappix\"\n")) << text.constData();
    file.close();

    // A desktop that switches the entry off marks it Hidden and keeps the file.
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("Hidden = True\n");
    file.close();
    EXPECT_FALSE(entry.isEnabled());

    EXPECT_TRUE(entry.setEnabled(false, {}));
    EXPECT_FALSE(QFileInfo::exists(entry.path()));
}
