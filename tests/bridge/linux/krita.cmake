# Krita's host: the settings edit, the installer and the socket client, each
# against files and real local sockets in a temporary folder.
tw_add_test(kritarc_test SOURCES linux/KritaRcTest.cpp LIBS tintwell_bridge_krita)
tw_add_test(krita_plugin_test SOURCES linux/KritaPluginTest.cpp LIBS tintwell_bridge_krita)
target_compile_definitions(krita_plugin_test PRIVATE TW_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
# The stand-in plug-in listens with QLocalServer, as the real one does.
find_package(Qt6 REQUIRED COMPONENTS Network)
tw_add_test(krita_host_test SOURCES linux/KritaHostTest.cpp LIBS tintwell_bridge_krita Qt6::Network)
# The xwd reader the real-application tests count pixels with.
tw_add_test(xwd_image_test SOURCES linux/XwdImageTest.cpp LIBS tw_design_app_support LABELS xvfb)
# Against the real Krita under Xvfb: one process for all the cases, which
# share one Krita and run in order.
tw_add_test(krita_real_test WHOLE TIMEOUT 600 SOURCES linux/KritaRealTest.cpp
  LIBS tintwell_bridge_krita tw_design_app_support Qt6::Network LABELS design_apps)
set_tests_properties(krita_real_test PROPERTIES RUN_SERIAL TRUE)
