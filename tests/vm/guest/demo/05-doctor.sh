# Demo chapter: "qira-wifi doctor", with wlan0 joined to HomeWPA2 by the
# station part: is this camera what the module relies on? Every check
# passes; then /bin/hostapd loses its execute bit for one run, and doctor
# says what the module would do wrong and how to fix it.
echo "=== Is this camera what the module relies on?"
show qira-wifi doctor "$CAMERA_IF"
echo "(exit status $?)"
echo
echo "=== The same with /bin/hostapd made non-executable (put back right after)"
doctor_demo_mode=$(stat -L -c %a /bin/hostapd)
show chmod 644 /bin/hostapd
show_sh "qira-wifi doctor $CAMERA_IF | grep -v '^ok '"
echo "(the other checks are ok)"
show chmod "$doctor_demo_mode" /bin/hostapd
echo
