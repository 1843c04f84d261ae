# Run by `cmake --install` (and so by cpack): puts the autostart entry where the session of the
# user who installs finds it. The install rule sets entry (the configured file) and name.
#
# - The prefix inside the installing user's home (~/.local): that user's own autostart folder,
#   $XDG_CONFIG_HOME/autostart, as only that user can run what is installed there.
# - Any other prefix (/usr for the package, /usr/local as root): /etc/xdg/autostart, for every
#   user, the folder every desktop's session reads (a prefix's own etc/xdg is on nobody's
#   XDG_CONFIG_DIRS).
#
# An entry already there that differs is left as it is: it is the user's choice ("Start at Login"
# turned off writes Hidden=true into it) or another installation's. Only a staged install (DESTDIR,
# as cpack makes) always writes, into its own empty tree.
set(home "$ENV{HOME}")
string(REGEX REPLACE "/+$" "" home "${home}")
string(FIND "${CMAKE_INSTALL_PREFIX}/" "${home}/" at)
if(home AND at EQUAL 0)
  set(folder "$ENV{XDG_CONFIG_HOME}")
  if(NOT IS_ABSOLUTE "${folder}")
    set(folder "${home}/.config")
  endif()
  set(folder "${folder}/autostart")
else()
  set(folder "/etc/xdg/autostart")
endif()

set(target "$ENV{DESTDIR}${folder}/${name}")
if("$ENV{DESTDIR}" STREQUAL "" AND (EXISTS "${target}" OR IS_SYMLINK "${target}"))
  file(READ "${entry}" ours)
  file(READ "${target}" theirs)
  if(ours STREQUAL theirs)
    message(STATUS "Up-to-date: ${target}")
  else()
    message(STATUS "Kept: ${target} (an entry of your own or of another installation)")
  endif()
  return()
endif()
# Written anew (an install would skip a file whose time matches the entry's).
file(REMOVE "${target}")
file(INSTALL DESTINATION "${folder}" TYPE FILE RENAME "${name}" FILES "${entry}")
