#!/bin/bash
# The HTTPS lab of a build tree: nginx (one server per certificate case, a
# plain-HTTP server for PAC files), tinyproxy and the lab's fault server, all
# on free loopback ports, with certificates made here, and the lab CA trusted
# by the Wine prefix. Everything lives in LABDIR: certificates, configuration,
# payload folder (www/), pid files, logs and temporary files.
#
#   https_lab.sh start BUILD PREFIX [LABDIR]   (re)make and start the lab
#   https_lab.sh stop BUILD PREFIX [LABDIR]    stop what the lab started and
#                                              take its CA out of the prefix
#
# LABDIR defaults to BUILD/lab/https, where the integration harness
# (BUILD/bin) finds LABDIR/lab.ini. Started as root, the servers run as
# "nobody" when that user can reach LABDIR. HTTPS_LAB_SLOW_AFTER=BYTES adds
# a location /slow-after/ on the servers that sends that many bytes of a
# response at full speed and the rest slowly (the benchmarks cut a large
# download there).
set -euo pipefail
usage="usage: https_lab.sh start|stop BUILD PREFIX [LABDIR]"
cmd=${1:?$usage}
build=$(realpath "${2:?$usage}")
prefix=$(realpath -m "${3:?$usage}")
lab=$(realpath -m "${4:-$build/lab/https}")
here=$(cd "$(dirname "$0")" && pwd)
# Debian's interpreter: one in a user's own folder (pyenv and the like) may
# be out of reach for the unprivileged servers.
python=$(readlink -f "$(command -v /usr/bin/python3 || command -v python3)")
python_name=$(basename "$python")

# nginx's rate for the slow locations (bytes per second), so that a test can
# interrupt a download of a few MiB halfway.
SLOW_RATE=512k

log() { echo "https-lab: $*"; }

# Z:\... for a Linux path, as Wine sees it.
winpath() { local p; p=$(realpath -m "$1"); echo "Z:${p//\//\\}"; }

# Whether the process PID is one of ours by its program name.
is_ours() { [ -r "/proc/$1/comm" ] && [ "$(cat "/proc/$1/comm" 2>/dev/null)" = "$2" ]; }

# Ends the process named in a pid file, if it is still the program we
# started, and waits for it.
stop_pid_file() {
  local file=$1 name=$2 pid i
  [ -f "$file" ] || return 0
  pid=$(tr -dc 0-9 < "$file")
  if [ -n "$pid" ] && is_ours "$pid" "$name" && kill -TERM "$pid" 2>/dev/null; then
    for i in $(seq 100); do
      is_ours "$pid" "$name" || break
      sleep 0.1
    done
    if is_ours "$pid" "$name"; then
      log "$name ($pid) did not end on TERM; killing it"
      kill -KILL "$pid" 2>/dev/null || true
    fi
  fi
  rm -f "$file"
}

# The prefix's wine-run for the lab's Windows helper, when the prefix is
# there (stop doesn't make a prefix just to clean it).
trust_ca() {
  local action=$1 pem=$2
  [ -f "$build/bin/lab-trust-ca.exe" ] || { log "no $build/bin/lab-trust-ca.exe"; return 1; }
  ZT_WINEPREFIX=$prefix "$build/wine-run" "$build/bin/lab-trust-ca.exe" "$action" "$(winpath "$pem")" </dev/null
}

stop_lab() {
  stop_pid_file "$lab/run/nginx.pid" nginx
  stop_pid_file "$lab/run/tinyproxy.lab-pid" tinyproxy
  stop_pid_file "$lab/run/fault.lab-pid" "$python_name"
  if [ -f "$lab/certs/ca.pem" ] && [ -f "$prefix/.zt-lab-ready" ]; then
    trust_ca remove "$lab/certs/ca.pem" || log "could not take the lab CA out of $prefix"
  fi
}

# N distinct ports free on both loopback addresses.
free_ports() {
  python3 - "$1" <<'EOF'
import socket, sys
n, held, ports = int(sys.argv[1]), [], []
while len(ports) < n:
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    try:
        s6 = socket.socket(socket.AF_INET6)
        s6.bind(("::1", port))
        held.append(s6)
    except OSError as e:
        if e.errno != 99:  # no IPv6 loopback at all: one address is enough
            s.close()
            continue
    held.append(s)
    ports.append(port)
print(" ".join(map(str, ports)))
EOF
}

# Waits (at most ~10 s) until something accepts connections on the port.
wait_port() {
  local port=$1 name=$2 i
  for i in $(seq 100); do
    if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then return 0; fi
    sleep 0.1
  done
  log "$name does not listen on port $port; see $lab/logs"
  return 1
}

make_certs() {
  local c=$lab/certs
  mkdir -p "$c"
  cd "$c"
  local ext_ca="basicConstraints=critical,CA:TRUE
keyUsage=critical,keyCertSign,cRLSign
subjectKeyIdentifier=hash"
  for ca in ca other-ca; do
    local cn="Zenthra Lab CA"
    [ "$ca" = other-ca ] && cn="Zenthra Lab Untrusted CA"
    openssl req -x509 -new -newkey rsa:2048 -nodes -sha256 -days 30 -subj "/CN=$cn/O=Zenthra Lab" \
      -keyout "$ca.key" -out "$ca.pem" -addext "basicConstraints=critical,CA:TRUE" \
      -addext "keyUsage=critical,keyCertSign,cRLSign" 2>/dev/null
  done
  # A minimal CA database, for the expired certificate's explicit dates.
  mkdir -p db
  : > db/index.txt
  echo 1000 > db/serial
  cat > ca.cnf <<EOF
[ca]
default_ca = lab
[lab]
dir = $c
database = $c/db/index.txt
serial = $c/db/serial
new_certs_dir = $c/db
default_md = sha256
policy = any
copy_extensions = none
unique_subject = no
[any]
commonName = supplied
EOF
  # server NAME ISSUER DNS [START END]
  server() {
    local name=$1 issuer=$2 dns=$3
    printf 'subjectAltName=DNS:%s\nbasicConstraints=CA:FALSE\nkeyUsage=critical,digitalSignature,keyEncipherment\nextendedKeyUsage=serverAuth\nauthorityKeyIdentifier=keyid\nsubjectKeyIdentifier=hash\n' \
      "$dns" > "$name.ext"
    openssl req -new -newkey rsa:2048 -nodes -subj "/CN=$dns" -keyout "$name.key" -out "$name.csr" 2>/dev/null
    if [ $# -ge 5 ]; then
      openssl ca -batch -config ca.cnf -cert "$issuer.pem" -keyfile "$issuer.key" -startdate "$4" -enddate "$5" \
        -extfile "$name.ext" -in "$name.csr" -out "$name.pem" -notext 2>/dev/null
    else
      openssl x509 -req -sha256 -days 30 -in "$name.csr" -CA "$issuer.pem" -CAkey "$issuer.key" \
        -CAcreateserial -extfile "$name.ext" -out "$name.pem" 2>/dev/null
    fi
  }
  server localhost ca localhost
  server other-ca-localhost other-ca localhost
  server expired ca localhost 20200101000000Z 20200201000000Z
  server wrong-host ca elsewhere.zenthra-lab.test
  rm -f ./*.csr ./*.ext
  cd - >/dev/null
}

thumbprint() { openssl x509 -in "$1" -noout -fingerprint -sha1 | sed 's/.*=//; s/://g'; }

write_nginx_conf() {
  local conf=$lab/conf/nginx.conf
  slow_after_location=
  if [ -n "${HTTPS_LAB_SLOW_AFTER:-}" ]; then
    slow_after_location="        location /slow-after/ {
            alias $lab/www/;
            limit_rate_after ${HTTPS_LAB_SLOW_AFTER//[^0-9]/};
            limit_rate $SLOW_RATE;
        }"
  fi
  server_block() {
    local name=$1 port=$2 cert=$3
    cat <<EOF
    server {
        listen 127.0.0.1:$port ssl;
        $listen6 [::1]:$port ssl;
        server_name localhost;
        ssl_certificate $lab/certs/$cert.pem;
        ssl_certificate_key $lab/certs/$cert.key;
        access_log $lab/logs/access-$name.log lab;
        root $lab/www;
        location /norange/ { alias $lab/www/; max_ranges 0; }
        location /slow/ {
            alias $lab/www/;
            limit_rate $SLOW_RATE;
            if (-f $lab/www/.unthrottled) { set \$limit_rate 0; }
        }
$slow_after_location
        location /norange-slow/ {
            alias $lab/www/;
            max_ranges 0;
            limit_rate $SLOW_RATE;
            if (-f $lab/www/.unthrottled) { set \$limit_rate 0; }
        }
    }
EOF
  }
  {
    cat <<EOF
# Made by tests/lab/https/https_lab.sh; remade at every start.
worker_processes 1;
pid $lab/run/nginx.pid;
error_log $lab/logs/error.log warn;
events { worker_connections 128; }
http {
    types {
        application/octet-stream msi exe tar bin;
        application/x-ns-proxy-autoconfig pac;
    }
    default_type application/octet-stream;
    client_body_temp_path $lab/tmp/body;
    proxy_temp_path $lab/tmp/proxy;
    fastcgi_temp_path $lab/tmp/fastcgi;
    uwsgi_temp_path $lab/tmp/uwsgi;
    scgi_temp_path $lab/tmp/scgi;
    # What the tests read: the request, its Range header, status and bytes.
    log_format lab '\$server_port "\$request" "\$http_range" \$status \$body_bytes_sent';
    sendfile on;
    keepalive_timeout 10;
    ssl_protocols TLSv1.2 TLSv1.3;
EOF
    server_block good "$port_good" localhost
    server_block other-ca "$port_other_ca" other-ca-localhost
    server_block expired "$port_expired" expired
    server_block wrong-host "$port_wrong_host" wrong-host
    cat <<EOF
    server {
        listen 127.0.0.1:$port_plain;
        $listen6 [::1]:$port_plain;
        server_name localhost;
        access_log $lab/logs/access-plain.log lab;
        root $lab/pac;
        location /www/ { alias $lab/www/; }
    }
}
EOF
  } > "$conf"
}

write_tinyproxy_conf() {
  cat > "$lab/conf/tinyproxy.conf" <<EOF
# Made by tests/lab/https/https_lab.sh; remade at every start.
Port $port_proxy
Listen 127.0.0.1
$tinyproxy_listen6
Timeout 60
LogFile "$lab/logs/tinyproxy.log"
LogLevel Info
MaxClients 32
Allow 127.0.0.1
Allow ::1
DisableViaHeader Yes
ConnectPort $port_good
ConnectPort $port_other_ca
ConnectPort $port_fault
EOF
}

write_pac_files() {
  # The proxy by address: Wine's WinHTTP sends no CONNECT when the proxy's
  # host name is the server's ("localhost" both), and talks TLS to the proxy.
  cat > "$lab/pac/proxy.pac" <<EOF
function FindProxyForURL(url, host) {
    return "PROXY 127.0.0.1:$port_proxy";
}
EOF
  # Not a script at all.
  head -c 512 /dev/urandom > "$lab/pac/garbage.pac"
  printf '\n}}} function FindProxyForURL( {{{ return PROXY;\n' >> "$lab/pac/garbage.pac"
}

write_ini() {
  local ini=$lab/lab.ini
  {
    echo "; The HTTPS lab as the integration harness finds it; made by https_lab.sh."
    echo "[lab]"
    echo "www=$(winpath "$lab/www")"
    echo "unthrottled=$(winpath "$lab/www/.unthrottled")"
    echo "ca=$(winpath "$lab/certs/ca.pem")"
    echo "other_ca=$(winpath "$lab/certs/other-ca.pem")"
    echo "thumbprint=$(thumbprint "$lab/certs/localhost.pem")"
    echo "other_ca_thumbprint=$(thumbprint "$lab/certs/other-ca-localhost.pem")"
    echo "ca_thumbprint=$(thumbprint "$lab/certs/ca.pem")"
    echo "[ports]"
    echo "good=$port_good"
    echo "other_ca=$port_other_ca"
    echo "expired=$port_expired"
    echo "wrong_host=$port_wrong_host"
    echo "plain=$port_plain"
    echo "proxy=$port_proxy"
    echo "fault=$port_fault"
    echo "dead=$port_dead"
    echo "[logs]"
    for name in good other-ca expired wrong-host plain; do
      echo "${name//-/_}=$(winpath "$lab/logs/access-$name.log")"
    done
    echo "proxy=$(winpath "$lab/logs/tinyproxy.log")"
    echo "fault=$(winpath "$lab/logs/fault.log")"
  } > "$ini.new"
  mv "$ini.new" "$ini"
}

start_lab() {
  for program in nginx tinyproxy python3 openssl; do
    command -v "$program" >/dev/null || { log "$program is missing: run scripts/setup.sh"; exit 1; }
  done
  # Whatever an interrupted run left goes first.
  stop_lab
  rm -rf "$lab"
  mkdir -p "$lab"/{conf,www,pac,logs,run,tmp}
  make_certs

  # Unprivileged where possible: as root, the servers run as nobody when
  # nobody can reach the lab's folder.
  runas=()
  server_user=$(id -un)
  if [ "$(id -u)" = 0 ] && id nobody >/dev/null 2>&1; then
    if setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups -- test -x "$lab/www" 2>/dev/null; then
      runas=(setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups --)
      server_user=nobody
      chown -R nobody: "$lab/logs" "$lab/run" "$lab/tmp"
      chown nobody: "$lab"/certs/*.key
    else
      log "nobody can't reach $lab; the servers run as $(id -un)"
    fi
  fi
  listen6=listen
  tinyproxy_listen6="Listen ::1"
  if ! { [ -e /proc/net/if_inet6 ] && grep -q ' lo$' /proc/net/if_inet6; }; then
    listen6="# no IPv6 loopback: listen"
    tinyproxy_listen6="# no IPv6 loopback"
  fi

  local attempt
  for attempt in 1 2 3; do
    read -r port_good port_other_ca port_expired port_wrong_host port_plain port_proxy port_fault port_dead \
      < <(free_ports 8)
    write_nginx_conf
    write_tinyproxy_conf
    write_pac_files
    # Another program may take a port between the choice and the start:
    # then everything starts again on new ports.
    if "${runas[@]}" nginx -p "$lab" -c "$lab/conf/nginx.conf" -e "$lab/logs/error.log" \
        </dev/null >>"$lab/logs/nginx.out" 2>&1; then
      "${runas[@]}" tinyproxy -d -c "$lab/conf/tinyproxy.conf" </dev/null >>"$lab/logs/tinyproxy.out" 2>&1 &
      echo $! > "$lab/run/tinyproxy.lab-pid"
      "${runas[@]}" "$python" "$here/fault_server.py" --port "$port_fault" --root "$lab/www" \
        --cert "$lab/certs/localhost.pem" --key "$lab/certs/localhost.key" --log "$lab/logs/fault.log" \
        </dev/null >>"$lab/logs/fault.out" 2>&1 &
      echo $! > "$lab/run/fault.lab-pid"
      if wait_port "$port_good" nginx && wait_port "$port_plain" nginx && wait_port "$port_proxy" tinyproxy &&
         wait_port "$port_fault" "the fault server"; then
        break
      fi
    fi
    log "start $attempt failed:"
    tail -n 5 "$lab"/logs/*.out "$lab/logs/error.log" 2>/dev/null | sed 's/^/  /' || true
    stop_pid_file "$lab/run/nginx.pid" nginx
    stop_pid_file "$lab/run/tinyproxy.lab-pid" tinyproxy
    stop_pid_file "$lab/run/fault.lab-pid" "$python_name"
    [ "$attempt" = 3 ] && exit 1
  done
  # The logs the tests read exist from the start.
  for f in access-good access-other-ca access-expired access-wrong-host access-plain tinyproxy fault; do
    [ -e "$lab/logs/$f.log" ] || { : > "$lab/logs/$f.log"; [ ${#runas[@]} -eq 0 ] || chown nobody: "$lab/logs/$f.log"; }
  done

  trust_ca add "$lab/certs/ca.pem" || { log "could not add the lab CA to $prefix"; stop_lab; exit 1; }
  trust_ca check "$lab/certs/ca.pem" || { log "the lab CA is not in $prefix's LocalMachine\\Root"; stop_lab; exit 1; }
  write_ini
  log "up in $lab: nginx $port_good (lab CA), $port_other_ca (untrusted CA), $port_expired (expired)," \
      "$port_wrong_host (other host), $port_plain (plain HTTP); tinyproxy $port_proxy; fault server $port_fault" \
      "(as $server_user)"
}

case "$cmd" in
  start) start_lab ;;
  stop)
    stop_lab
    rm -f "$lab/lab.ini"
    log "stopped ($lab)"
    ;;
  *)
    echo "$usage" >&2
    exit 2
    ;;
esac
