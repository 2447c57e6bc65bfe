# What is installed for the tool's users: manual pages, where scdoc is there to write them, and the completions of bash,
# zsh and fish, made from what the tool says of its options.

find_package(Python3 COMPONENTS Interpreter)
find_program(QAV_SCDOC scdoc DOC "Writes the manual pages")
set(QAV_DOCUMENTS_DIR ${PROJECT_BINARY_DIR}/documents)
file(MAKE_DIRECTORY ${QAV_DOCUMENTS_DIR})
set(qav_documents)

if(Python3_Interpreter_FOUND)
  set(script ${PROJECT_SOURCE_DIR}/scripts/completions)
  set(options ${QAV_DOCUMENTS_DIR}/options)
  add_custom_command(OUTPUT ${options} DEPENDS qav_tool COMMAND qav_tool --list-options > ${options})
  foreach(completion bash/qav zsh/_qav fish/qav.fish)
    cmake_path(GET completion PARENT_PATH shell)
    file(MAKE_DIRECTORY ${QAV_DOCUMENTS_DIR}/${shell})
    add_custom_command(OUTPUT ${QAV_DOCUMENTS_DIR}/${completion} DEPENDS ${options} ${script}
                       COMMAND Python3::Interpreter ${script} ${shell} < ${options}
                               > ${QAV_DOCUMENTS_DIR}/${completion})
    list(APPEND qav_documents ${QAV_DOCUMENTS_DIR}/${completion})
  endforeach()
  install(FILES ${QAV_DOCUMENTS_DIR}/bash/qav DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${QAV_DOCUMENTS_DIR}/zsh/_qav DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${QAV_DOCUMENTS_DIR}/fish/qav.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
else()
  message(STATUS "Without Python there are neither completions nor manual pages")
endif()

if(Python3_Interpreter_FOUND AND QAV_SCDOC)
  set(script ${PROJECT_SOURCE_DIR}/scripts/man-page)
  file(GLOB pages CONFIGURE_DEPENDS docs/man/qav*.1.scd)
  file(GLOB parts CONFIGURE_DEPENDS docs/man/*.scd)
  foreach(page IN LISTS pages)
    cmake_path(GET page STEM LAST_ONLY name)
    set(output ${QAV_DOCUMENTS_DIR}/${name})
    add_custom_command(OUTPUT ${output} DEPENDS ${parts} ${script}
                       COMMAND Python3::Interpreter ${script} ${page} ${PROJECT_VERSION} > ${output}.scd
                       COMMAND ${QAV_SCDOC} < ${output}.scd > ${output})
    list(APPEND qav_documents ${output})
    install(FILES ${output} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endforeach()
elseif(Python3_Interpreter_FOUND)
  message(STATUS "Without scdoc there are no manual pages")
endif()

add_custom_target(qav_documents ALL DEPENDS ${qav_documents})
