# Run by CPack between installing the files and packing them.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY})

# Debian wants these compressed, without name and time so that builds can be reproduced.
file(GLOB compressed ${root}/usr/share/man/man*/* ${root}/usr/share/doc/*/changelog)
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)

# One page for both files.
file(CREATE_LINK qvn_web_helper.conf.5.gz ${root}/usr/share/man/man5/qvn_db_info.conf.5.gz SYMBOLIC)
