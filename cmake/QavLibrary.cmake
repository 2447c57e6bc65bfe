# libqav, from the objects of all folders.

add_library(qav $<TARGET_OBJECTS:qav_objects>)
add_library(qav::qav ALIAS qav)
set_target_properties(qav PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                      LINKER_LANGUAGE C)
target_include_directories(qav PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(qav PRIVATE m)
target_link_options(qav PRIVATE ${QAV_LINK_HARDENING})
if(BUILD_SHARED_LIBS)
  # Linked as C: nothing of the C++ runtime may be needed. Exactly the names of the map leave the library.
  set(QAV_VERSION_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/qav.map)
  target_link_options(qav PRIVATE -Wl,--as-needed -Wl,--version-script=${QAV_VERSION_SCRIPT})
  set_target_properties(qav PROPERTIES LINK_DEPENDS ${QAV_VERSION_SCRIPT})
  if(QAV_SANITIZE)
    # The sanitizers' runtimes come with the C++ driver, and leave names open in shared libraries.
    set_target_properties(qav PROPERTIES LINKER_LANGUAGE CXX)
    target_link_options(qav PRIVATE -fsanitize=${QAV_SANITIZE})
  else()
    target_link_options(qav PRIVATE -Wl,-z,defs)
  endif()
endif()
