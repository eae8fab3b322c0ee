# The packer: its library (deck lists, page loading, encoding) and the program.
add_library(sl_pack STATIC ${CMAKE_CURRENT_LIST_DIR}/deck.cpp ${CMAKE_CURRENT_LIST_DIR}/encoder.cpp
            ${CMAKE_CURRENT_LIST_DIR}/packer.cpp)
target_link_libraries(sl_pack sl_app sl_png sl_codec sl_io sl_support PNG::PNG)
add_executable(pack_slides ${CMAKE_CURRENT_LIST_DIR}/pack_slides.cpp)
target_link_libraries(pack_slides sl_pack sl_app sl_png sl_codec sl_io sl_support PNG::PNG ${X11_LIBRARIES})
