# Run by `cmake --install`, with CONF_SAMPLES: makes the configuration and the folders that an installation lacks. What
# exists is the operator's: neither its content nor its owner nor its mode is touched, so that installing over an
# installation is an upgrade.
set(home $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX})
set(closed OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)
set(open ${closed} WORLD_READ WORLD_EXECUTE)

function(make_folder name)
  if(NOT EXISTS ${home}/${name})
    file(MAKE_DIRECTORY ${home}/${name})
    file(CHMOD ${home}/${name} PERMISSIONS ${ARGN})
  endif()
endfunction()

# The configuration holds passwords, the log may.
make_folder(conf ${closed})
make_folder(log ${closed})
make_folder(run ${open})
# Where results go when the configuration names no other folders. A daemon that may not write beside its executable
# cannot make them.
make_folder(result_log ${open})
make_folder(rerate_cdr ${open})

file(GLOB samples ${CONF_SAMPLES}/*.conf)
foreach(sample IN LISTS samples)
  get_filename_component(name ${sample} NAME)
  if(EXISTS ${home}/conf/${name} OR IS_SYMLINK ${home}/conf/${name})
    message(STATUS "Kept: ${home}/conf/${name}")
  else()
    file(INSTALL DESTINATION ${CMAKE_INSTALL_PREFIX}/conf TYPE FILE FILES ${sample}
      PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ)
  endif()
endforeach()
