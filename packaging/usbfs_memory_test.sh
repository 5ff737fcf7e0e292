# usbfs_memory_test.sh HELPER: the limit before, the setting, the limit afterwards
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

status=0
while read -r before setting after; do
    echo "$before" >"$folder/limit"
    rm -f "$folder/settings"
    [ "$setting" = none ] || echo "USBFS_MEMORY_MB=$setting" >"$folder/settings"
    sh "$1" "$folder/limit" "$folder/settings" 2>/dev/null
    [ "$(cat "$folder/limit")" = "$after" ] || {
        echo "$before with $setting: $(cat "$folder/limit") instead of $after" && status=1
    }
done <<END
16 none 256
256 none 256
1000 none 1000
0 none 0
16 1000 1000
300 1000 1000
16 0 16
16 much 16
END
exit $status
