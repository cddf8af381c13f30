#pragma once

#include <QString>

// The names of the in-process notifications. Each is made once, on first use,
// and shared by every subsystem.
namespace tw::notification {

// Object: a ColorStruct. User info {"Quilla": "NewColor"} from the pen and the
// panel, {"Quilla": "NewScreenColor"} from the screen picker.
const QString& newColor();
// No object. User info {"Quilla": "Device Connected"}.
const QString& connectedQuilla();
// No object. User info {"Quilla": "Device Disconnected"}.
const QString& disconnected();
// No object, no user info. Posted on the main thread when quitting starts.
const QString& appClosing();
// No object. User info {"Mouse": "Down"}.
const QString& mouseDown();
// Object: the chosen row index (qint64). User info {"Library": "Changed"}.
// Deliberately observed by nobody in this version.
const QString& colorLibraryChanged();

// The user-info key of every pen and colour notification.
const QString& quillaKey();

}  // namespace tw::notification
