dnl A platform's policy as small as the phone in a box takes it, in the names of Android 8.1. The kernel allows what is in
dnl a class or a permission that is not listed here (handle_unknown). The build defines KIT, the folder of device/sepolicy.
define(`r_file_perms', `{ getattr open read ioctl lock map }')dnl
define(`w_file_perms', `{ open append write lock map }')dnl
define(`rx_file_perms', `{ r_file_perms execute execute_no_trans }')dnl
define(`create_file_perms', `{ create rename setattr unlink r_file_perms append write }')dnl
define(`r_dir_perms', `{ open getattr read search ioctl lock }')dnl
define(`create_dir_perms', `{ create reparent rename rmdir setattr r_dir_perms add_name remove_name write }')dnl
define(`r_dir_file', `allow $1 $2:dir r_dir_perms; allow $1 $2:{ file lnk_file } r_file_perms;')dnl
define(`domain_auto_trans', `
  allow $1 $2:file { r_file_perms execute };
  allow $1 $3:process { transition siginh rlimitinh noatsecure };
  allow $3 $2:file { r_file_perms execute entrypoint };
  type_transition $1 $2:process $3;
')dnl
define(`init_daemon_domain', `domain_auto_trans(init, $1_exec, $1)')dnl
define(`set_prop', `
  allow $1 property_socket:sock_file write;
  allow $1 init:unix_stream_socket connectto;
  allow $1 $2:property_service set;
  allow $1 $2:file { getattr open read map };
')dnl
define(`userdebug_or_eng', `')dnl
define(`of_file', `getattr open read ioctl lock map append write create rename setattr unlink relabelfrom relabelto')dnl
class security class system class capability class capability2 class process class file class dir class lnk_file
class chr_file class blk_file class fifo_file class sock_file class unix_stream_socket class property_service
sid kernel sid security sid unlabeled sid fs sid file sid file_labels sid init sid any_socket sid port sid netif
sid netmsg sid node sid igmp_packet sid icmp_socket sid tcp_socket sid sysctl_modprobe sid sysctl sid sysctl_fs
sid sysctl_kernel sid sysctl_net sid sysctl_net_unix sid sysctl_vm sid sysctl_dev sid kmod sid policy sid scmp_packet
sid devnull
class security { setenforce }
class system { syslog_read syslog_mod }
class capability { chown dac_override dac_read_search fowner fsetid kill setgid setuid setpcap net_admin sys_admin sys_resource sys_nice }
class capability2 { syslog }
class process { transition siginh rlimitinh noatsecure ptrace setexec setfscreate dyntransition execmem execstack execheap }
class file { of_file execute execute_no_trans entrypoint execmod }
class dir { of_file search rmdir reparent add_name remove_name }
class lnk_file { of_file } class chr_file { of_file } class blk_file { of_file } class fifo_file { of_file } class sock_file { of_file }
class unix_stream_socket { connectto } class property_service { set }
sensitivity s0; dominance { s0 } category c0; level s0:c0; mlsconstrain process transition (h1 dom h2);
attribute domain; attribute coredomain; attribute dev_type; attribute exec_type; attribute file_type;
attribute data_file_type; attribute core_data_file_type; attribute fs_type; attribute sysfs_type;
attribute property_type;
type init, domain, coredomain; type kernel, domain, coredomain; type dumpstate, domain, coredomain;
type init_exec, exec_type, file_type; type toolbox_exec, exec_type, file_type; type system_file, file_type;
type system_data_file, file_type, data_file_type, core_data_file_type; type property_socket, file_type;
type unlabeled, file_type; type rootfs, fs_type; type tmpfs, fs_type; type proc, fs_type; type labeledfs, fs_type;
type sysfs, fs_type, sysfs_type; type sysfs_thermal, fs_type, sysfs_type; type device, dev_type; type null_device, dev_type;
domain_auto_trans(kernel, init_exec, init)
define(`everything', `{ domain file_type fs_type dev_type property_type }')dnl
allow { init kernel } everything:{ security system capability capability2 process } *;
allow { init kernel } everything:{ file dir lnk_file chr_file blk_file fifo_file sock_file unix_stream_socket property_service } *;
dnl What every program may: start, and see itself.
r_dir_file(domain, system_file) r_dir_file(domain, rootfs) allow domain system_file:file execute;
r_dir_file(domain, domain) allow domain self:{ file fifo_file } { r_file_perms w_file_perms }; allow domain { proc sysfs device tmpfs }:dir search;
allow domain proc:lnk_file read; allow domain null_device:chr_file { open read write getattr };
include(KIT/quilcat.te)
role r; role r types domain; role object_r; user u roles { r } level s0 range s0 - s0:c0;
define(`initial', `sid $1 u:object_r:$2:s0')dnl
sid kernel u:r:kernel:s0 sid init u:r:kernel:s0 initial(security, unlabeled) initial(unlabeled, unlabeled)
initial(fs, labeledfs) initial(file, unlabeled) initial(devnull, null_device) initial(any_socket, unlabeled)
initial(port, unlabeled) initial(netif, unlabeled) initial(netmsg, unlabeled) initial(node, unlabeled)
fs_use_xattr ext4 u:object_r:labeledfs:s0; fs_use_xattr f2fs u:object_r:labeledfs:s0;
fs_use_trans tmpfs u:object_r:tmpfs:s0; fs_use_trans devtmpfs u:object_r:device:s0; fs_use_task pipefs u:object_r:labeledfs:s0;
fs_use_task sockfs u:object_r:labeledfs:s0;
genfscon rootfs / u:object_r:rootfs:s0
genfscon proc / u:object_r:proc:s0
genfscon sysfs / u:object_r:sysfs:s0
genfscon selinuxfs / u:object_r:sysfs:s0
include(KIT/genfs_contexts)
