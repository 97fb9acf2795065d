# The two (empty) translation catalogues are compiled with lrelease and
# embedded under ":/Translations". rcc's generated initializer registers the
# resource when the library is loaded and unregisters it when it is unloaded.
# Included from the top-level list file, so that the generated source
# belongs to the same directory as the library target.
set(QUILLET_TR_DIR ${CMAKE_CURRENT_BINARY_DIR}/translations)
file(MAKE_DIRECTORY ${QUILLET_TR_DIR})
find_program(QUILLET_LRELEASE NAMES lrelease lrelease-qt5
  HINTS /usr/lib/qt5/bin /usr/lib/x86_64-linux-gnu/qt5/bin REQUIRED)
get_target_property(QUILLET_RCC Qt5::rcc IMPORTED_LOCATION)

set(_qm_files "")
foreach(_lang fr de)
  set(_ts ${CMAKE_CURRENT_LIST_DIR}/Quillet_${_lang}.ts)
  set(_qm ${QUILLET_TR_DIR}/Quillet_${_lang}.qm)
  add_custom_command(OUTPUT ${_qm}
    COMMAND ${QUILLET_LRELEASE} -silent ${_ts} -qm ${_qm}
    DEPENDS ${_ts}
    COMMENT "Compiling translation Quillet_${_lang}.qm"
    VERBATIM)
  list(APPEND _qm_files ${_qm})
endforeach()

set(_qrc ${QUILLET_TR_DIR}/translations.qrc)
file(WRITE ${_qrc}.in
"<RCC>
  <qresource prefix=\"/Translations\">
    <file>Quillet_fr.qm</file>
    <file>Quillet_de.qm</file>
  </qresource>
</RCC>
")
configure_file(${_qrc}.in ${_qrc} COPYONLY)

set(_rcc_cpp ${QUILLET_TR_DIR}/qrc_quillet_translations.cpp)
add_custom_command(OUTPUT ${_rcc_cpp}
  COMMAND ${QUILLET_RCC} --name quillet_translations --output ${_rcc_cpp} ${_qrc}
  DEPENDS ${_qrc} ${_qm_files}
  WORKING_DIRECTORY ${QUILLET_TR_DIR}
  COMMENT "Embedding translations"
  VERBATIM)
set_source_files_properties(${_rcc_cpp} PROPERTIES SKIP_AUTOMOC ON GENERATED ON)
target_sources(QuilletObjects PRIVATE ${_rcc_cpp})
