# libqav, from the objects of all folders.

add_library(qav $<TARGET_OBJECTS:qav_objects>)
add_library(qav::qav ALIAS qav)
set_target_properties(qav PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                      LINKER_LANGUAGE C)
target_include_directories(qav PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
if(BUILD_SHARED_LIBS)
  # Linked as C: nothing of the C++ runtime may be needed, and no name may stay open.
  target_link_options(qav PRIVATE -Wl,-z,defs -Wl,--as-needed
                      $<$<BOOL:${QAV_SANITIZE}>:-fsanitize=${QAV_SANITIZE}>)
  if(QAV_SANITIZE)
    set_target_properties(qav PROPERTIES LINKER_LANGUAGE CXX)
  endif()
endif()
