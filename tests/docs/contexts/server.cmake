# SPDX-License-Identifier: Apache-2.0
cmake_minimum_required(VERSION 3.25)
project(server LANGUAGES CXX)
add_executable(server server.cpp)
# snippet
