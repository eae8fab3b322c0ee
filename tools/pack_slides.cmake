# The packer: its library (deck lists, page loading, PDF rendering, encoding) and the program.
# Only the packer links poppler; the viewer depends on libX11 and libpng alone.
find_package(PkgConfig REQUIRED)
pkg_check_modules(POPPLER_CPP REQUIRED IMPORTED_TARGET poppler-cpp)
add_library(sl_pack STATIC ${CMAKE_CURRENT_LIST_DIR}/deck.cpp ${CMAKE_CURRENT_LIST_DIR}/encoder.cpp
            ${CMAKE_CURRENT_LIST_DIR}/packer.cpp
            ${CMAKE_CURRENT_LIST_DIR}/pdf.cpp)
target_link_libraries(sl_pack sl_app sl_png sl_codec sl_io sl_support PNG::PNG PkgConfig::POPPLER_CPP)
add_executable(pack_slides ${CMAKE_CURRENT_LIST_DIR}/pack_slides.cpp)
target_link_libraries(pack_slides sl_pack sl_app sl_png sl_codec sl_io sl_support PNG::PNG ${X11_LIBRARIES})
