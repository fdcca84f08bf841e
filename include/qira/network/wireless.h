// Everything the wireless module exports.
#ifndef QIRA_NETWORK_WIRELESS_H
#define QIRA_NETWORK_WIRELESS_H

#include "qira/network/ap_info.h"
#include "qira/network/ap_selection.h"
#include "qira/network/event_text.h"
#include "qira/network/event_type.h"
#include "qira/network/netlib_events.h"
#include "qira/network/netlib_iface.h"
#include "qira/network/netlib_netm.h"
#include "qira/network/netlib_scan.h"
#include "qira/network/nl_helpers.h"
#include "qira/network/wpa_client.h"

#endif  // QIRA_NETWORK_WIRELESS_H
