# Krita's host: the plug-in it installs (resources/krita, compiled in as Qt
# resources under :/krita/), the installer, and the socket client. Its own
# library, so the application links it next to the other hosts.
tw_add_library(tintwell_bridge_krita linux/KritaRc.cpp linux/KritaPlugin.cpp
  linux/KritaChannel.cpp linux/KritaHost.cpp)
target_link_libraries(tintwell_bridge_krita PUBLIC tintwell_bridge)
qt_add_resources(tintwell_bridge_krita tintwell_krita_plugin PREFIX /krita
  BASE ${PROJECT_SOURCE_DIR}/resources/krita
  FILES ${PROJECT_SOURCE_DIR}/resources/krita/tintwell_bridge.desktop
        ${PROJECT_SOURCE_DIR}/resources/krita/tintwell_bridge/__init__.py)
