# Run by `cmake --install` after the GStreamer plugin is installed: when GStreamer does not search the
# directory the plugin went to, and GST_PLUGIN_PATH does not name it yet, says how to set it.
# PM5544_GST_INSTALL_DIR is the plugin's directory under the prefix, PM5544_GST_SEARCHED_DIR GStreamer's own.
cmake_path(SET plugin_dir NORMALIZE "${CMAKE_INSTALL_PREFIX}/${PM5544_GST_INSTALL_DIR}")
cmake_path(SET searched_dir NORMALIZE "${PM5544_GST_SEARCHED_DIR}")
string(REGEX REPLACE "/$" "" plugin_dir "${plugin_dir}")
string(REGEX REPLACE "/$" "" searched_dir "${searched_dir}")
string(REPLACE ":" ";" plugin_path "$ENV{GST_PLUGIN_PATH}")
list(FIND plugin_path "${plugin_dir}" named)
if(NOT plugin_dir STREQUAL searched_dir AND named EQUAL -1)
  message(NOTICE "GStreamer does not look for plugins in ${plugin_dir}. For it to find pm5544src there, "
                 "set GST_PLUGIN_PATH (e.g. in ~/.profile):\n"
                 "    export GST_PLUGIN_PATH=${plugin_dir}")
endif()
