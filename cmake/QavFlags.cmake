# qav_flags: what everything is compiled with. qav_library_flags: what the library's own sources add.

add_library(qav_flags INTERFACE)
# -Wno-psabi: vectors wider than the baseline's are handed only to functions that are always inlined.
target_compile_options(qav_flags INTERFACE -Wno-psabi -Wall -Wextra -Wconversion -Wshadow -Wdouble-promotion
                       $<$<BOOL:${QAV_WERROR}>:-Werror>)
if(QAV_SANITIZE)
  target_compile_options(qav_flags INTERFACE -fsanitize=${QAV_SANITIZE} -fno-sanitize-recover=all
                         -fno-omit-frame-pointer)
  target_link_options(qav_flags INTERFACE -fsanitize=${QAV_SANITIZE})
endif()

# No contraction and no flag that changes a value: every build and every CPU gives the same bytes. Neither exceptions nor
# run-time type information nor guarded statics: the library needs nothing of the C++ runtime.
add_library(qav_library_flags INTERFACE)
target_link_libraries(qav_library_flags INTERFACE qav_flags)
target_include_directories(qav_library_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(qav_library_flags INTERFACE -ffp-contract=off -fno-math-errno -fno-trapping-math
                       -fvisibility=hidden -fno-exceptions -fno-rtti -fno-threadsafe-statics)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86)$")
  # The x87 unit rounds to another precision.
  target_compile_options(qav_library_flags INTERFACE -msse2 -mfpmath=sse)
endif()

# A folder of the library: its sources join the objects that library and tests link.
add_library(qav_objects OBJECT)
target_link_libraries(qav_objects PRIVATE qav_library_flags)
set_target_properties(qav_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
