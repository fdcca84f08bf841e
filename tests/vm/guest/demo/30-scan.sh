# Demo chapter: a scan through the module, beside the kernel's own BSS table
# of the same radio as iw prints it.
echo
echo "=== Scanning: the module triggers a scan on $SPARE_IF and lists what it found, best first"
ip link set "$SPARE_IF" up
show qira-wifi scan "$SPARE_IF"
echo
echo "=== The same radio's BSS table as the kernel holds it (iw)"
echo
echo "camera# iw dev $SPARE_IF scan dump | grep -E '^BSS |^[[:space:]](SSID|freq|signal):'"
iw dev "$SPARE_IF" scan dump | grep -E '^BSS |^[[:space:]](SSID|freq|signal):'
