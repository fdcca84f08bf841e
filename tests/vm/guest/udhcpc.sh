#!/bin/sh
# busybox udhcpc event script of the virtual camera: sets the leased address
# and default route with iproute2 (busybox's "ip" applet is not used).
case $1 in
  deconfig)
    /usr/sbin/ip addr flush dev "$interface"
    /usr/sbin/ip link set "$interface" up
    ;;
  bound | renew)
    /usr/sbin/ip addr flush dev "$interface"
    /usr/sbin/ip addr add "$ip/${mask:-24}" dev "$interface"
    [ -n "$router" ] && /usr/sbin/ip route replace default via "${router%% *}" dev "$interface"
    echo "udhcpc: $interface bound to $ip/${mask:-24}"
    ;;
esac
exit 0
