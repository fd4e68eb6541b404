divert(-1)
# The platform's policy macros that sepolicy/*.te uses, with the meaning the platform gives them,
# so that a host can expand and compile the daemon's policy. A device build uses the platform's
# own definitions instead.

define(`r_file_perms', `{ getattr open read ioctl lock map watch watch_reads }')
define(`w_file_perms', `{ open append write lock map }')
define(`rw_file_perms', `{ r_file_perms w_file_perms }')
define(`create_file_perms', `{ create rename setattr unlink rw_file_perms }')
define(`r_dir_perms', `{ open getattr read search ioctl lock watch watch_reads }')
define(`rw_dir_perms', `{ r_dir_perms add_name write remove_name }')

define(`r_dir_file', `
allow $1 $2:dir r_dir_perms;
allow $1 $2:{ file lnk_file } r_file_perms;
')

define(`domain_trans', `
allow $1 $2:file { getattr open read execute map };
allow $1 $3:process transition;
allow $3 $2:file { entrypoint open read execute getattr map };
allow $3 $1:process sigchld;
dontaudit $1 $3:process noatsecure;
allow $1 $3:process { siginh rlimitinh };
')

define(`domain_auto_trans', `
domain_trans($1,$2,$3)
type_transition $1 $2:process $3;
')

define(`init_daemon_domain', `
domain_auto_trans(init, $1_exec, $1)
')

define(`unix_socket_connect', `
allow $1 $2_socket:sock_file write;
allow $1 $3:unix_stream_socket connectto;
')

define(`get_prop', `
allow $1 $2:file { getattr open read map };
')

define(`set_prop', `
unix_socket_connect($1, property, init)
allow $1 $2:property_service set;
get_prop($1, $2)
')

define(`vendor_internal_prop', `
type $1, property_type, vendor_property_type, vendor_internal_property_type;
')

divert(0)dnl
