# Run by CPack between installing the files and packing them.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY})

# Debian wants these compressed, without name and time so that builds can be reproduced.
file(GLOB compressed ${root}/usr/share/man/man*/* ${root}/usr/share/doc/*/changelog)
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)

# On the PATH, in the folder that suits the section of the manual page.
file(GLOB programs RELATIVE ${root}/opt/qvn_web_helper ${root}/opt/qvn_web_helper/qvn_*)
foreach(program IN LISTS programs)
  set(folder ${root}/usr/sbin)
  if(EXISTS ${root}/usr/share/man/man1/${program}.1.gz)
    set(folder ${root}/usr/bin)
  endif()
  file(MAKE_DIRECTORY ${folder})
  file(CREATE_LINK /opt/qvn_web_helper/${program} ${folder}/${program} SYMBOLIC)
endforeach()

# One page for both files.
file(CREATE_LINK qvn_web_helper.conf.5.gz ${root}/usr/share/man/man5/qvn_db_info.conf.5.gz SYMBOLIC)
