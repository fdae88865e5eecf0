// The full command vocabulary of "network.cgi", for the unit tests of the table's layout and the
// end-to-end test of the catalog's coverage.
#pragma once

#include <string>
#include <vector>

namespace korvex::test {

// Every wire name "network.cgi" accepts, in registration order.
inline const std::vector<std::string> kFullCatalog = {
    "test", "json", "easycmd", "jsongettitles",
    "jsongetgroup", "jsonsetall", "jsongetall", "jsongetupdate",
    "jsondel", "jsonrename", "jsongetevent", "jsongetmacroevent",
    "doscene", "doscenemode", "jsonsetuserdata", "jsongetuserdata",
    "jsonsetcheckbox", "jsongetcheckbox", "jsonsetcheckbox2", "jsongetcheckbox2",
    "getdoscenemode", "removeappconfig", "backupappconfig", "restoreappconfig",
    "restoreappconfig2", "backupKorvexData", "p2preconnect", "getp2preconnect",
    "getDST", "setDST", "getsavingtime", "setsavingtime",
    "enableastclock", "getenableastclock", "enableswitchall", "enabletimer",
    "enablelock", "getenablelock", "wifiscan", "getssidlist",
    "setwifimode", "getwifimode", "setapssid", "getapssid",
    "setstassid", "getstassid", "setappwd", "getappwd",
    "setstapwd", "getstapwd", "stalinkstatus", "set_wifi_country_region",
    "get_wifi_country_region", "wificommit", "wifi_carrier", "getwifiapmd5",
    "getwifistamd5", "listnvram", "getnvram", "resetconfig",
    "getconnectmode", "getip", "getgateway", "getnetmask",
    "getdnsserver", "setconnectmode", "setstaticip", "setgateway",
    "setnetmask", "setdns", "setdns2nd", "setdnsserver",
    "commit", "disablentpclient", "setntpserver", "getntpserver",
    "setntpsynctime", "getntpsynctime", "settimezone", "gettimezone",
    "gettime", "ntpcommit", "setastclock_lon", "getastclock_lon",
    "setastclock_lat", "getastclock_lat", "getupdatestatus", "checkupdate",
    "update", "checkuimage", "updateuimage", "setMAC",
    "setEthMAC", "setWifiMAC", "getMAC", "updateuboot",
    "setTUTKuuid", "getTUTKuuid", "setOrbwebuuid", "getOrbwebuuid",
    "getp2pusername", "setp2pusername", "getp2ppwd", "setp2ppwd",
    "getSUpwd", "setSUpwd", "p2paccountcommit", "pppoeenable",
    "setpppoeusername", "setpppoepassword", "getpppoeenable", "getpppoeusername",
    "getpppoepassword", "pppoecommit", "setcustomername", "getcustomername",
    "setTelldusSecret", "getTelldusSecret", "refreshWeBeHome", "setvivotekuuid",
    "getvivotekuuid", "listOOM", "listAllocated", "enableTelnetd",
    "memdbg", "memusage", "enableFtpd", "setsocketaddr",
    "setsocketport", "getsocketaddr", "getsocketport", "setsocketsec",
    "getsocketsec", "authcode", "proctable", "sysinfo",
    "disconnect_icloud", "socketcommit", "settestmode", "gettestmode",
    "setzwavemodule", "getzwavemodule", "test433", "reflash",
    "reboot", "uptime", "getplatform", "sethostname",
    "gethostname", "setlanguage", "getlanguage", "getswversion",
};

}  // namespace korvex::test
