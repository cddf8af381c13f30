# Krita's host: the plug-in it installs (resources/krita, compiled in as Qt
# resources under :/krita/), the installer, and the socket client. Its own
# library, so the application links it next to the other hosts.
tw_add_library(tintwell_bridge_krita linux/KritaRc.cpp)
target_link_libraries(tintwell_bridge_krita PUBLIC tintwell_bridge)
