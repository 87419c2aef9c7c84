# CLI11::CLI11, which is headers alone. A build for another system takes those of the building one, from a folder that
# holds nothing else: the building system's other headers must not be found.
if(NOT CMAKE_CROSSCOMPILING)
    find_package(CLI11 2.1 REQUIRED)
    return()
endif()
find_package(CLI11 2.1 REQUIRED CONFIG NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH
    PATHS /usr/local/share/cmake /usr/local/lib/cmake /usr/share/cmake /usr/lib/cmake)
get_target_property(folder CLI11::CLI11 INTERFACE_INCLUDE_DIRECTORIES)
file(COPY ${folder}/CLI DESTINATION ${CMAKE_BINARY_DIR}/cli11)
set_target_properties(CLI11::CLI11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${CMAKE_BINARY_DIR}/cli11)
