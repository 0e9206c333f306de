#!/usr/bin/env bash
# Prints the channel objects of an IPC domain, as its signal registry names
# them (every row slot, also those a removal left behind), one per line.
# Shared channels outlive their processes by design, so a script that ran
# programs in a domain of its own removes them with this list.
#
#   bash scripts/domain-channels.sh DOMAIN
set -euo pipefail
domain="$1"
[ -f "/dev/shm/ky_ipc_registry_$domain" ] || exit 0
perl -e '
  my ($file, $domain) = @ARGV;
  open my $f, "<:raw", $file or exit 0;
  local $/;
  my $b = <$f>;
  for (my $o = 56; $o + 640 <= length $b; $o += 640) {
    my ($shm, $d) = (unpack("Z64", substr($b, $o + 32, 64)), unpack("Z64", substr($b, $o + 96, 64)));
    print "$shm\n" if $d eq $domain && $shm =~ m{^/ky_sig_[0-9a-f]+$};
  }' "/dev/shm/ky_ipc_registry_$domain" "$domain"
