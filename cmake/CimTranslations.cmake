# Catalogs of translations: NAME_LANGUAGE.ts becomes NAME_LANGUAGE.qm, which is installed to CIM_TRANSLATION_DIR. In the build
# tree, the folder has the same place relative to a program: $BUILD/apps/PROGRAM/PROGRAM stands for bin/PROGRAM.
find_package(Qt${CIM_QT} ${CIM_QT_VERSION} REQUIRED COMPONENTS LinguistTools)

set(CIM_TRANSLATION_DIR ${CMAKE_INSTALL_DATADIR}/vexmor${CIM_QT_SUFFIX}/translations)
file(RELATIVE_PATH CIM_TRANSLATION_DIR_FROM_PROGRAM /${CMAKE_INSTALL_BINDIR} /${CIM_TRANSLATION_DIR})
get_filename_component(CIM_BUILD_TRANSLATION_DIR
    ${PROJECT_BINARY_DIR}/apps/program/${CIM_TRANSLATION_DIR_FROM_PROGRAM} ABSOLUTE)

# cim_add_translations(TARGET FILE...) builds these catalogs together with TARGET. To update them from changed sources:
# lupdate -locations none -no-obsolete -I . SOURCES -ts FILE
function(cim_add_translations target)
    set_source_files_properties(${ARGN} PROPERTIES OUTPUT_LOCATION ${CIM_BUILD_TRANSLATION_DIR})
    cmake_language(CALL qt${CIM_QT}_add_translation catalogs ${ARGN})
    add_custom_target(${target}Translations ALL DEPENDS ${catalogs})
    add_dependencies(${target} ${target}Translations)
    install(FILES ${catalogs} DESTINATION ${CIM_TRANSLATION_DIR})
endfunction()
