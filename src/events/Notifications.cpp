#include "events/Notifications.h"

namespace tw::notification {

#define TW_NOTIFICATION_NAME(function, text) \
  const QString& function() {                \
    static const QString name(text);         \
    return name;                             \
  }

TW_NOTIFICATION_NAME(newColor, "Notification_New_Color")
TW_NOTIFICATION_NAME(connectedQuilla, "Notification_Connected_Quilla")
TW_NOTIFICATION_NAME(disconnected, "Notification_Disconnected")
TW_NOTIFICATION_NAME(appClosing, "Notification_App_Closing")
TW_NOTIFICATION_NAME(mouseDown, "Notification_Mouse_Down")
TW_NOTIFICATION_NAME(colorLibraryChanged, "Notification_ColorLibraryChanged")
TW_NOTIFICATION_NAME(quillaKey, "Quilla")

#undef TW_NOTIFICATION_NAME

}  // namespace tw::notification
