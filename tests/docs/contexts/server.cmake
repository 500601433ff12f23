cmake_minimum_required(VERSION 3.25)
project(server LANGUAGES CXX)
add_executable(server server.cpp)
# snippet
