add_executable(slides_codec ${CMAKE_CURRENT_LIST_DIR}/slides_codec.cpp)
target_link_libraries(slides_codec sl_png sl_codec sl_support PNG::PNG)
