# The demo show: make_demo draws the pages, pack_slides turns them into build/demo_show.
add_executable(make_demo ${CMAKE_CURRENT_LIST_DIR}/make_demo.cpp)
target_link_libraries(make_demo sl_display sl_png sl_codec sl_support PNG::PNG ${X11_LIBRARIES})

add_custom_command(
  OUTPUT ${CMAKE_BINARY_DIR}/demo_show
  COMMAND make_demo ${CMAKE_BINARY_DIR}/demo-deck > /dev/null
  COMMAND pack_slides ${CMAKE_BINARY_DIR}/demo-deck -o ${CMAKE_BINARY_DIR}/demo_show --verify > /dev/null
  DEPENDS make_demo pack_slides view_slides
  COMMENT "Packing the demo show")
add_custom_target(demo_show ALL DEPENDS ${CMAKE_BINARY_DIR}/demo_show)

add_executable(grab_window ${CMAKE_CURRENT_LIST_DIR}/grab_window.cpp)
target_link_libraries(grab_window sl_png sl_codec sl_support PNG::PNG ${X11_LIBRARIES})
