# What an installation holds: four libraries, their headers, a CMake package, pkg-config files.
include(CMakePackageConfigHelpers)

install(TARGETS tqplatform tqhook TQAudioRecordResolver TQAudioRecord
        EXPORT TQAudioRecordTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
set_target_properties(TQAudioRecordResolver PROPERTIES EXPORT_NAME Resolver)
set_target_properties(tqplatform PROPERTIES EXPORT_NAME platform)
set_target_properties(tqhook PROPERTIES EXPORT_NAME hook)

foreach(header ${TQ_PUBLIC_HEADERS})
    install(FILES Classes/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TQAudioRecord)
endforeach()
install(FILES capi/tq_capture.h capi/tq_source.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TQAudioRecord)
install(FILES Resolver/TQAudioRecordResolver.h Resolver/TQAudioUnitRecordResolveManager.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TQAudioRecord)
install(FILES hook/tq_hook.h hook/Hook.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TQAudioRecord/hook)
install(DIRECTORY platform/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TQAudioRecord/platform)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TQAudioRecord)
install(EXPORT TQAudioRecordTargets NAMESPACE TQAudioRecord:: DESTINATION ${package_dir})
configure_package_config_file(cmake/TQAudioRecordConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/TQAudioRecordConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/TQAudioRecordConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/TQAudioRecordConfig.cmake
              ${CMAKE_BINARY_DIR}/TQAudioRecordConfigVersion.cmake
        DESTINATION ${package_dir})

foreach(module tqplatform tqhook TQAudioRecordResolver TQAudioRecord)
    configure_file(cmake/${module}.pc.in ${CMAKE_BINARY_DIR}/${module}.pc @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
