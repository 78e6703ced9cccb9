dnl What device/sepolicy uses of the platform's policy: classes with their permissions, macros, types and attributes, in
dnl the names of Android 8.1. It shows that the policy compiles, not that the platform's own rules let it pass.
dnl The build defines QUILCAT_TE and QUILCAT_GENFS as the paths of the two files.
define(`r_file_perms', `{ getattr open read ioctl lock map }')dnl
define(`w_file_perms', `{ open append write lock map }')dnl
define(`rx_file_perms', `{ getattr open read ioctl lock map execute execute_no_trans }')dnl
define(`create_file_perms', `{ create rename setattr unlink getattr open read ioctl lock map append write }')dnl
define(`r_dir_perms', `{ open getattr read search ioctl lock }')dnl
define(`create_dir_perms', `{ create reparent rename rmdir setattr open getattr read search ioctl lock add_name remove_name write }')dnl
define(`r_dir_file', `allow $1 $2:dir r_dir_perms; allow $1 $2:{ file lnk_file } r_file_perms;')dnl
define(`init_daemon_domain', `
  allow init $1_exec:file { getattr open read execute map };
  allow init $1:process { transition siginh rlimitinh };
  allow $1 $1_exec:file { entrypoint open read execute getattr map };
  type_transition init $1_exec:process $1;
')dnl
define(`set_prop', `
  allow $1 property_socket:sock_file write;
  allow $1 init:unix_stream_socket connectto;
  allow $1 $2:property_service set;
  allow $1 $2:file { getattr open read map };
')dnl
class system class capability class capability2 class process class file class dir class lnk_file class chr_file
class sock_file class unix_stream_socket class property_service
sid kernel
class system { syslog_read syslog_mod } class capability { chown dac_override fowner } class capability2 { syslog }
class process { transition siginh rlimitinh }
class file { getattr open read ioctl lock map append write create rename setattr unlink execute execute_no_trans entrypoint }
class dir { getattr open read search ioctl lock write create reparent rename rmdir setattr add_name remove_name }
class lnk_file { getattr open read ioctl lock map append write create rename setattr unlink }
class chr_file { getattr open read ioctl lock map append write create rename setattr unlink }
class sock_file { write }
class unix_stream_socket { connectto }
class property_service { set }
sensitivity s0; dominance { s0 } category c0; level s0:c0; mlsconstrain process transition (h1 dom h2);
attribute domain; attribute coredomain; attribute dev_type; attribute exec_type; attribute file_type;
attribute data_file_type; attribute core_data_file_type; attribute fs_type; attribute sysfs_type;
attribute property_type;
type init, domain, coredomain; type kernel, domain, coredomain; type proc, fs_type; type sysfs, fs_type, sysfs_type;
type system_data_file, file_type, data_file_type, core_data_file_type; type toolbox_exec, exec_type, file_type;
type property_socket, file_type;
include(QUILCAT_TE)
role r; role r types domain; role object_r; user u roles { r } level s0 range s0 - s0:c0;
sid kernel u:r:kernel:s0
genfscon proc / u:object_r:proc:s0
genfscon sysfs / u:object_r:sysfs:s0
include(QUILCAT_GENFS)
