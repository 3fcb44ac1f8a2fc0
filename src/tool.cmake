# The program qrx, a client of the library.  It links the library statically, so it runs without installation.
# It uses exceptions, as its other libraries do.
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
list(FILTER tool_sources EXCLUDE REGEX /main\\.cpp$)
add_library(quarnex_tool STATIC ${tool_sources} ${tool_headers}) # fuzz targets link it too
target_include_directories(quarnex_tool PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(quarnex_tool PUBLIC quarnex_api CLI11::CLI11 nlohmann_json::nlohmann_json
  PRIVATE quarnex_options)
add_executable(qrx tool/main.cpp)
target_link_libraries(qrx PRIVATE quarnex_tool quarnex_options)
set_target_properties(qrx PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
foreach(name unqrx qrxcat)
  add_program_name(qrx ${name})
endforeach()
