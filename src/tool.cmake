# The program qrx, a client of the library.  It links the library statically, so it runs without installation.
# It uses exceptions, as its other libraries do.
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
add_executable(qrx ${tool_sources} ${tool_headers})
target_include_directories(qrx PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(qrx PRIVATE quarnex_api quarnex_options CLI11::CLI11 nlohmann_json::nlohmann_json)
set_target_properties(qrx PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
foreach(name unqrx qrxcat)
  add_program_name(qrx ${name})
endforeach()
