# `cmake --install` puts the virtual Mac's programs into one directory, as they find each other
# there, with links for those that a person calls; and the stories, profiles, documents, manual pages
# and completions beside them. The target virtual-mac-kit builds all that is installed.
include(GNUInstallDirs)
set(programs ${CMAKE_INSTALL_LIBEXECDIR}/virtual-mac)
set(documents ${CMAKE_INSTALL_DATADIR}/doc/virtual-mac)
set(kit virtual-mac virtual-mac-page KorvelHelper korvel-app)
if(virtual-mac-page IN_LIST KORVEL_COMPILED_ONLY)
  list(REMOVE_ITEM kit virtual-mac-page)
endif()
install(TARGETS ${kit} RUNTIME DESTINATION ${programs})
foreach(program virtual-mac korvel-app)
  file(RELATIVE_PATH target /${CMAKE_INSTALL_BINDIR} /${programs}/${program})
  install(CODE "set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
file(MAKE_DIRECTORY \"\${folder}\")
file(CREATE_LINK ${target} \"\${folder}/${program}\" SYMBOLIC)")
endforeach()
install(DIRECTORY ${CMAKE_SOURCE_DIR}/VirtualMac/Scenarios/gallery
  ${CMAKE_SOURCE_DIR}/VirtualMac/Machine/profiles
  DESTINATION ${CMAKE_INSTALL_DATADIR}/virtual-mac)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/ DESTINATION ${documents}
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.schema.json")
install(FILES ${CMAKE_SOURCE_DIR}/CHANGELOG.md DESTINATION ${documents})

add_custom_target(virtual-mac-kit ALL DEPENDS ${kit})
# The rest is made by the programs themselves, so they must run here.
if(CMAKE_CROSSCOMPILING)
  return()
endif()
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(made ${CMAKE_BINARY_DIR}/kit)
set(makers ${CMAKE_SOURCE_DIR}/script/manuals)
set(pages virtual-mac.1 korvel-app.1 virtual-mac-scenario.5)
list(TRANSFORM pages REPLACE "(.+)" "${made}/man/\\1.gz")
add_custom_command(OUTPUT ${pages}
  COMMAND Python3::Interpreter -B ${makers}/make.py ${CMAKE_SOURCE_DIR} $<TARGET_FILE_DIR:virtual-mac>
    ${PROJECT_VERSION} ${made}/man
  DEPENDS virtual-mac korvel-app ${makers}/make.py ${makers}/roff.py ${makers}/history.py
    ${CMAKE_SOURCE_DIR}/docs/virtual-mac.md ${CMAKE_SOURCE_DIR}/docs/scenarios.md
  VERBATIM)
foreach(page ${pages})
  string(REGEX REPLACE ".*\\.([0-9])\\.gz$" "\\1" section ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

# completions(SHELL FOLDER NAME) makes those of one shell; @ in NAME is the program's name.
function(completions shell folder name)
  foreach(program virtual-mac korvel-app)
    string(REPLACE @ ${program} file ${made}/${shell}/${name})
    add_custom_command(OUTPUT ${file}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${made}/${shell}
      COMMAND ${program} completion ${shell} > ${file}
      DEPENDS ${program} VERBATIM)
    install(FILES ${file} DESTINATION ${CMAKE_INSTALL_DATADIR}/${folder})
    set_property(GLOBAL APPEND PROPERTY virtual_mac_completions ${file})
  endforeach()
endfunction()
completions(bash bash-completion/completions @)
completions(fish fish/vendor_completions.d @.fish)
completions(zsh zsh/vendor-completions _@)
get_property(scripts GLOBAL PROPERTY virtual_mac_completions)
add_custom_target(virtual-mac-papers DEPENDS ${pages} ${scripts})
add_dependencies(virtual-mac-kit virtual-mac-papers)

if(EXISTS /etc/debian_version)
  include(VirtualMacPackage)
endif()
