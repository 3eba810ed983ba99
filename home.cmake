# home.cmake: where all is installed, and where the programs look for etc/ and lib/.
#
# The sources name the usual folder whole, so that who reads it in a log finds the place.  Another one goes into
# copies of the headers that do, which the compiler meets first, and into the installed documents.
set(KORVO_USUAL_HOME /usr/local/korvo)
set(KORVO_HOME ${KORVO_USUAL_HOME} CACHE STRING
    "The folder of all that is installed; the programs look for etc/ and lib/ there")
if(NOT KORVO_HOME MATCHES "^(/[A-Za-z0-9_.+-]+)+$")
  message(FATAL_ERROR "KORVO_HOME takes the path of a folder from the root on, in letters, digits and _ . + -, "
                      "not '${KORVO_HOME}'")
endif()
# Packages put what people edit, and what the tools read, in the system's own folders; the daemon and those behind it are
# given theirs by the units.
set(KORVO_CONF "" CACHE STRING "Where korvoctl and korvo-web look for their configuration, if not in etc/ of KORVO_HOME")
set(KORVO_SHARE "" CACHE STRING "Where they look for messages, pages and macros, if not in share/korvo of KORVO_HOME")
# A prefix that nobody chose follows KORVO_HOME, also when that changes.
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT OR CMAKE_INSTALL_PREFIX STREQUAL "${KORVO_PREFIX}")
  set(CMAKE_INSTALL_PREFIX ${KORVO_HOME} CACHE PATH "KORVO_HOME" FORCE)
  set(KORVO_PREFIX ${KORVO_HOME} CACHE INTERNAL "The prefix that follows KORVO_HOME")
endif()

if(NOT "${KORVO_HOME}${KORVO_CONF}${KORVO_SHARE}" STREQUAL KORVO_USUAL_HOME)
  foreach(header core/startup.h macro/table.h tools/ctl/places.h web/places.h)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
    file(READ ${header} text)
    if(KORVO_CONF AND header MATCHES "places.h$")
      string(REPLACE ${KORVO_USUAL_HOME}/etc ${KORVO_CONF} text "${text}")
    endif()
    if(KORVO_SHARE AND header MATCHES "places.h$")
      string(REPLACE ${KORVO_USUAL_HOME}/share/korvo ${KORVO_SHARE} text "${text}")
      string(REPLACE ${KORVO_USUAL_HOME}/lib ${KORVO_SHARE} text "${text}")  # shown there to the daemon by its unit
    endif()
    string(REPLACE ${KORVO_USUAL_HOME} ${KORVO_HOME} text "${text}")
    file(CONFIGURE OUTPUT home/${header} CONTENT "${text}" @ONLY)
  endforeach()
  target_include_directories(korvo_options BEFORE INTERFACE ${CMAKE_BINARY_DIR}/home)
endif()

# Stands before all that is installed.
install(CODE "
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL \"${KORVO_HOME}\")
    message(FATAL_ERROR \"The programs look for etc/ and lib/ in ${KORVO_HOME}, not in \${CMAKE_INSTALL_PREFIX}. \"
      \"Install with --prefix ${KORVO_HOME}, or configure with -DKORVO_HOME=\${CMAKE_INSTALL_PREFIX}; \"
      \"DESTDIR puts a copy elsewhere, to pack it.\")
  endif()")

# Stands behind all that installs a document.
function(install_home_in_documents)
  if(KORVO_HOME STREQUAL KORVO_USUAL_HOME)
    return()
  endif()
  install(CODE "
    file(GLOB_RECURSE documents \"\$ENV{DESTDIR}${KORVO_HOME}/share/*\")
    list(FILTER documents EXCLUDE REGEX \"\\\\.mo$\")
    foreach(document \${documents})
      file(READ \${document} text)
      string(REPLACE ${KORVO_USUAL_HOME} ${KORVO_HOME} text \"\${text}\")
      file(WRITE \${document} \"\${text}\")
    endforeach()")
endfunction()
