-- luacheck of the dissector: what Lua 5.1 to 5.4 have in common, and what Wireshark adds.
std = "min"
max_line_length = 120
read_globals = {
  "DissectorTable", "Dir", "ENC_UTF_8", "Listener", "MENU_PACKET_STAT_UNSORTED", "MENU_STAT_UNSORTED", "NSTime", "Pref",
  "Proto", "ProtoExpert", "ProtoField", "TextWindow", "base", "dissect_tcp_pdus", "expert", "get_filter", "gui_enabled",
  "register_menu", "register_stat_cmd_arg", "report_failure", "retap_packets",
}
