// Marks the declarations the wireless module exports; everything else in the
// module is hidden.
#ifndef QIRA_NETWORK_EXPORT_H
#define QIRA_NETWORK_EXPORT_H

#define QIRA_WIRELESS_API __attribute__((visibility("default")))

#endif  // QIRA_NETWORK_EXPORT_H
