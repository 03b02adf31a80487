#!/bin/sh
# Writes the client application of the system suite, com.vantreel.Probe, at BUNDLE.app.
# Each run appends "SECONDS.NANOS bundle-id command-id arguments" to /var/tmp/kairo-marker;
# the argument "-fail" makes the run exit 1 after its line.
set -eu
bundle=${1:?usage: make-probe.sh BUNDLE.app}
name=$(basename "$bundle" .app)
mkdir -p "$bundle/Contents/MacOS" "$bundle/Contents/Resources"

cat >"$bundle/Contents/Info.plist" <<EOF
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>CFBundleIdentifier</key><string>com.vantreel.Probe</string>
	<key>CFBundleName</key><string>$name</string>
	<key>CFBundleExecutable</key><string>$name</string>
</dict>
</plist>
EOF

task() { # id description root arguments...
    id=$1 description=$2 root=$3
    shift 3
    printf '\t\t<dict>\n\t\t\t<key>id</key><string>%s</string>\n' "$id"
    printf '\t\t\t<key>description</key><string>%s</string>\n' "$description"
    printf '\t\t\t<key>command</key><array>'
    for argument in "$@"; do printf '<string>%s</string>' "$argument"; done
    printf '</array>\n'
    [ "$root" = root ] && printf '\t\t\t<key>root</key><true/>\n'
    printf '\t\t</dict>\n'
}
{
    printf '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n<dict>\n'
    printf '\t<key>VTTasks</key>\n\t<array>\n'
    for id in startup mount hourly daily weekly monthly tick calendar watch; do
        task "$id" "Probe $id" user "-$id" "two words"
    done
    task fail "Probe fail" user -fail
    task root "Probe root" root -root
    printf '\t</array>\n</dict>\n</plist>\n'
} >"$bundle/Contents/VTTasks.plist"

cat >"$bundle/Contents/MacOS/$name" <<'EOF'
#!/bin/sh
printf '%s %s %s %s\n' "$(date +%s.%N)" "$VTAppBundleID" "$VTCommandID" "$*" >>/var/tmp/kairo-marker
[ "$1" = -fail ] && exit 1
exit 0
EOF
chmod 755 "$bundle/Contents/MacOS/$name"
