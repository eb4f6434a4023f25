#!/bin/sh
# zonet ifaces in a network namespace that this script makes: a veth with a
# set hardware address and known addresses, an adapter without carrier, and
# reverse names from a hosts file of the script's own (bind-mounted in a
# private mount namespace, with a host database of "files" alone), so the
# output is known line by line. Exit 77 (skipped) without root or the tools.
#   zonet_ifaces_netns.sh PATH-TO-ZONET
set -u
zonet=$1
[ "$(id -u)" = 0 ] || { echo "skipped: needs root"; exit 77; }
for tool in ip unshare mount; do
  command -v "$tool" >/dev/null 2>&1 || { echo "skipped: $tool is missing"; exit 77; }
done
ns=zo-tool-$$
peer=zo-tool-peer-$$
tmp=$(mktemp -d)
cleanup() { ip netns del "$ns" 2>/dev/null; ip netns del "$peer" 2>/dev/null; rm -rf "$tmp"; }
trap cleanup EXIT
set -e
ip netns add "$ns"
ip netns add "$peer"
ip -n "$ns" link set lo up
ip -n "$ns" link add va type veth peer name vb netns "$peer"
ip -n "$ns" link add vc type veth peer name vd netns "$peer"
for dev in va vc; do ip -n "$ns" link set "$dev" addrgenmode none; done
ip -n "$ns" link set va address 02:AA:BB:CC:DD:01
ip -n "$ns" addr add 192.168.1.17/24 dev va
ip -n "$ns" addr add fd00:1:2:abcd::1/64 dev va nodad
ip -n "$ns" addr add 192.168.3.3/24 dev vc
ip -n "$ns" link set va up
ip -n "$ns" link set vc up
ip -n "$peer" link set vb up
i=0
until ip -n "$ns" link show dev va | grep -q 'state UP'; do
  i=$((i + 1)); [ $i -lt 100 ] || { echo "va never came up"; exit 1; }; sleep 0.05
done
printf '192.168.1.17 Alpha.Test\nfd00:1:2:abcd::1 alpha.test\n' >"$tmp/hosts"
sed 's/^hosts:.*/hosts: files/' /etc/nsswitch.conf >"$tmp/nsswitch.conf"
set +e
ip netns exec "$ns" unshare -m sh -c "mount --bind '$tmp/hosts' /etc/hosts &&
  mount --bind '$tmp/nsswitch.conf' /etc/nsswitch.conf &&
  '$zonet' ifaces --pairs --macs --names" >"$tmp/out" 2>"$tmp/err"
status=$?
cat >"$tmp/expected" <<'END'
IPv4  127.0.0.1                                127.0.0.0
IPv6  ::1                                      0.0.0.0
IPv4  192.168.1.17                             192.168.1.0
IPv6  fd00:1:2:abcd::1                         171.205.0.0
mac   02:aa:bb:cc:dd:01
address  192.168.1.17
address  fd00:1:2:abcd::1
name     alpha.test
END
if [ $status -ne 0 ] || ! cmp -s "$tmp/out" "$tmp/expected"; then
  echo "zonet ifaces: status $status; got:"; cat "$tmp/out"; echo "expected:"; cat "$tmp/expected"
  echo "stderr:"; cat "$tmp/err"
  exit 1
fi
grep -q "Skipping disabled interface 'vc'" "$tmp/err" || { echo "no log line for vc:"; cat "$tmp/err"; exit 1; }
echo "zonet ifaces: as expected"
