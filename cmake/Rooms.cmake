# The rooms of the house (docs/architecture.md). Each folder is one static library, and each library
# hands out its own headers alone: an include against the grain does not compile.

# velmora_room(NAME FOLDER folder [SOURCES file...] [HEADERS file...] [USES room...])
#   FOLDER   the folder below the root, as it stands in #include lines
#   HEADERS  only these headers are handed out (a folder that is shared by two rooms); else all
#   USES     rooms whose headers and code it needs; they are not passed on to whoever uses it
function(velmora_room name)
  cmake_parse_arguments(ROOM "" "FOLDER" "SOURCES;HEADERS;USES" ${ARGN})
  set(target velmora_${name})
  set(stage ${CMAKE_BINARY_DIR}/rooms/${name})
  if(ROOM_HEADERS)
    file(MAKE_DIRECTORY ${stage}/${ROOM_FOLDER})
    foreach(header ${ROOM_HEADERS})
      file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${ROOM_FOLDER}/${header} ${stage}/${ROOM_FOLDER}/${header} SYMBOLIC)
    endforeach()
  else()
    get_filename_component(parent ${stage}/${ROOM_FOLDER} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${ROOM_FOLDER} ${stage}/${ROOM_FOLDER} SYMBOLIC)
  endif()
  if(ROOM_SOURCES)
    add_library(${target} STATIC ${ROOM_SOURCES})
    target_include_directories(${target} PUBLIC ${stage})
    foreach(used ${ROOM_USES})
      target_link_libraries(${target} PRIVATE velmora_${used})
    endforeach()
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${stage})
  endif()
endfunction()

# velmora_tests(NAME SOURCES file... USES room...): one test program, its cases known to CTest.
# NATIVE_ONLY leaves it out of the Windows build.
function(velmora_tests name)
  cmake_parse_arguments(T "NATIVE_ONLY" "" "SOURCES;USES;LIBRARIES;LABELS" ${ARGN})
  if(T_NATIVE_ONLY AND WIN32)
    return()
  endif()
  add_executable(test_${name} ${T_SOURCES})
  foreach(used ${T_USES})
    target_link_libraries(test_${name} PRIVATE velmora_${used})
  endforeach()
  target_link_libraries(test_${name} PRIVATE velmora_test_support GTest::gmock GTest::gtest GTest::gtest_main ${T_LIBRARIES})
  target_precompile_headers(test_${name} REUSE_FROM velmora_test_support)
  gtest_discover_tests(test_${name} DISCOVERY_MODE PRE_TEST TEST_PREFIX "${name}/"
                       PROPERTIES TIMEOUT 300 LABELS "${T_LABELS}")
endfunction()

# velmora_header_only(NAME FOLDER): a header-only library of the system's, by its folder below
# /usr/include, as target velmora_NAME. It is staged by a link, so that a cross build sees these headers
# and none of the native system's beside them.
function(velmora_header_only name folder)
  if(TARGET velmora_${name})
    return()
  endif()
  set(stage ${CMAKE_BINARY_DIR}/headers/${name})
  file(MAKE_DIRECTORY ${stage})
  file(CREATE_LINK /usr/include/${folder} ${stage}/${folder} SYMBOLIC)
  add_library(velmora_${name} INTERFACE)
  target_include_directories(velmora_${name} SYSTEM INTERFACE ${stage})
endfunction()
