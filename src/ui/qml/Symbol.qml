import QtQuick
import QtQuick.Controls.impl as Impl

// A symbol from the desktop's icon theme by its freedesktop name, or Tappix's own
// drawing when the theme has none; tinted to the text it sits beside.
Impl.IconImage {
    property string symbol
    property string themeName
    property int size: 16

    name: themeName
    source: symbol ? "qrc:/Tappix/Ui/icons/" + symbol + ".svg" : ""
    sourceSize: Qt.size(size, size)
    width: size
    height: size
    fillMode: Image.PreserveAspectFit
    Accessible.ignored: true
}
