cmake_minimum_required(VERSION 3.18)
project(first_program LANGUAGES CXX)

find_package(framewell 1 CONFIG REQUIRED)
add_executable(app frame_at.cpp)
target_link_libraries(app PRIVATE framewell::framewell)
