# qav_flags: what everything is compiled with. qav_library_flags: what the library's own sources add.

add_library(qav_flags INTERFACE)
# -Wno-psabi: vectors wider than the baseline's are handed only to functions that are always inlined.
target_compile_options(qav_flags INTERFACE -Wno-psabi -Wall -Wextra -Wconversion -Wshadow -Wdouble-promotion
                       $<$<BOOL:${QAV_WERROR}>:-Werror>)
if(QAV_SANITIZE)
  target_compile_options(qav_flags INTERFACE -fsanitize=${QAV_SANITIZE} -fno-sanitize-recover=all
                         -fno-omit-frame-pointer)
  target_link_options(qav_flags INTERFACE -fsanitize=${QAV_SANITIZE})
  # Instrumented, GCC no longer sees that vectors are written lane by lane.
  target_compile_options(qav_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86)$")
  # The x87 unit rounds to another precision, in the tests' own calculations too. With its eight registers GCC does not see
  # that vectors are written.
  target_compile_options(qav_flags INTERFACE -msse2 -mfpmath=sse
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-uninitialized -Wno-maybe-uninitialized>)
endif()

# What stops an attacker who found a mistake nevertheless: containers that check their indices, the C library's checks of
# what is copied, guarded stacks; and for the library too, addresses that are bound early and read-only from then on.
# The library goes without guarded stacks and checked copies: the encoder took 1.36 times the instructions with them.
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)
set(QAV_LINK_HARDENING -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
add_library(qav_hardening INTERFACE)
target_link_options(qav_hardening INTERFACE ${QAV_LINK_HARDENING})
target_compile_definitions(qav_hardening INTERFACE _GLIBCXX_ASSERTIONS)
if(NOT QAV_SANITIZE)
  target_compile_options(qav_hardening INTERFACE -fstack-protector-strong
                         $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>)
endif()

# No contraction and no flag that changes a value: every build and every CPU gives the same bytes. Neither exceptions nor
# run-time type information nor guarded statics: the library needs nothing of the C++ runtime.
add_library(qav_library_flags INTERFACE)
target_link_libraries(qav_library_flags INTERFACE qav_flags)
target_include_directories(qav_library_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(qav_library_flags INTERFACE -ffp-contract=off -fno-math-errno -fno-trapping-math
                       -fvisibility=hidden -fno-exceptions -fno-rtti -fno-threadsafe-statics)

# A folder of the library: its sources join the objects that library and tests link.
add_library(qav_objects OBJECT)
target_link_libraries(qav_objects PRIVATE qav_library_flags)
set_target_properties(qav_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
