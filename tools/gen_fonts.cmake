# Regenerates display/font8.cpp and display/font15x24.cpp; built only where FreeType and zlib
# are installed, since the committed tables are all the project itself needs.
find_package(Freetype QUIET)
find_package(ZLIB QUIET)
if(FREETYPE_FOUND AND ZLIB_FOUND)
  add_executable(gen_fonts ${CMAKE_CURRENT_LIST_DIR}/gen_fonts.cpp)
  target_link_libraries(gen_fonts Freetype::Freetype ZLIB::ZLIB)
endif()
