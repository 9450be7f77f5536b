"""Configurations and processes of the servers."""

import os
import pathlib
import pwd
import shutil
import socket
import subprocess
import time


def free_port():
    with socket.socket(socket.AF_INET6) as probe:
        probe.bind(("::", 0))
        return probe.getsockname()[1]


class Ports(dict):
    """Gives each name a port when it is first used."""

    def __missing__(self, name):
        self[name] = free_port()
        return self[name]


class Programs:
    """The servers of `unpacked`. `skipped` says why a server does not run."""

    def __init__(self, unpacked, folder, certificates, services):
        self.unpacked = pathlib.Path(unpacked).resolve()
        self.folder = folder
        self.certificates = certificates
        self.services = services  # port of the service by its name
        self.ports = Ports()
        self.processes = []
        self.skipped = {}
        libraries = self.unpacked.glob("usr/lib/*-linux-gnu")
        self.environment = {"PATH": "/usr/sbin:/usr/bin:/bin", "LD_LIBRARY_PATH": ":".join(map(str, libraries))}

    def start_all(self):
        for name, start in {"nginx": self.nginx, "apache2": self.apache2, "squid": self.squid,
                            "haproxy": self.haproxy}.items():  # haproxy forwards to squid
            program = self.unpacked / "usr/sbin" / name
            home = self.folder / name
            home.mkdir()
            # A server that is installed on the machine is not unpacked.
            arguments = start(home, program if program.exists() else shutil.which(name, path="/usr/sbin"))
            if arguments[0] is None:
                self.skipped[name] = "its package is not available"
                continue
            with open(home / "output", "wb") as output:
                self.processes.append(subprocess.Popen(arguments, env=self.environment, stdout=output, stderr=output,
                                                       stdin=subprocess.DEVNULL, cwd=home))
            if not self.listens((home / "conf").read_text()):
                self.skipped[name] = "it does not start: " + (home / "output").read_text()[-300:]

    def listens(self, configuration):
        """Waits for the ports in the configuration of the process that was started last."""
        for name in [name for name, port in self.ports.items() if f":{port}" in configuration]:
            for _ in range(200):
                try:
                    socket.create_connection(("::1" if name == "ipv6" else "127.0.0.1", self.ports[name]), 1).close()
                    break
                except OSError:
                    if self.processes[-1].poll() is not None:
                        return False
                    time.sleep(0.05)
            else:
                return False
        return True

    def stop(self):
        for process in self.processes:
            process.terminate()
        for process in self.processes:
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()

    def nginx(self, home, program):
        def server(name, *lines, tls=None, address="127.0.0.1", to="service"):
            listen = f"listen {address}:{self.ports[name]}" + (" ssl http2;" if tls else ";")
            if tls:
                pem = self.certificates / f"{tls}.pem"
                listen += f" ssl_certificate {pem}; ssl_certificate_key {pem};"
            forward = f"location / {{ proxy_pass http://127.0.0.1:{self.services[to]}; }}"
            return "server { %s %s %s }\n" % (listen, " ".join(lines), "" if "return" in " ".join(lines) else forward)

        tls12, tls13 = "ssl_protocols TLSv1.2;", "ssl_protocols TLSv1.3;"
        (home / "conf").write_text(
            "daemon off; pid pid; error_log log;" + (" user root;" if os.geteuid() == 0 else "") +
            " worker_processes 1; events { worker_connections 500; }\n"
            "http { access_log off; client_max_body_size 0; proxy_http_version 1.1; client_body_temp_path body;"
            " proxy_temp_path proxy; fastcgi_temp_path f; uwsgi_temp_path u; scgi_temp_path s;\n" +
            server("plain") + server("ipv6", address="[::1]") +
            server("TLS 1.2, RSA", tls12, tls="rsa") + server("TLS 1.3, RSA", tls13, tls="rsa") +
            server("TLS 1.2, ECDSA", tls12, tls="ecdsa") + server("TLS 1.3, ECDSA", tls13, tls="ecdsa") +
            server("unbuffered", "proxy_request_buffering off;", tls="ecdsa") +
            server("slow", "proxy_request_buffering off;", to="slow", tls="ecdsa") +
            server("gzip", "gzip on; gzip_types *; gzip_proxied any; gzip_min_length 1;", to="200", tls="ecdsa") +
            server("nginx 413", "client_max_body_size 100k;", tls="ecdsa") +
            server("nginx 403", "return 403;", tls="ecdsa") +
            server("nginx 308", "return 308 https://127.0.0.1:9/;", tls="ecdsa") +
            server("other name", tls="other") + server("expired", tls="expired") + server("future", tls="future") +
            server("weak", "ssl_ciphers DEFAULT@SECLEVEL=0;", tls="weak") +
            server("no such name", "ssl_reject_handshake on;", tls="ecdsa") +
            server("nginx client", f"ssl_verify_client on; ssl_client_certificate {self.certificates}/ca.pem;",
                   tls="ecdsa") +
            "}\n")
        return [program, "-p", home, "-c", home / "conf"]

    def haproxy(self, home, program):
        def tls(name, certificate="ecdsa"):
            return (f"bind 127.0.0.1:{self.ports[name]} ssl crt {self.certificates}/{certificate}.pem"
                    " alpn h2,http/1.1")

        (home / "conf").write_text(
            "global\n ssl-default-bind-options ssl-min-ver TLSv1.2\n"
            "defaults\n mode http\n timeout connect 5s\n timeout client 30s\n timeout server 30s\n"
            f"frontend f1\n {tls('haproxy 429')}\n http-request return status 429\n"
            f"frontend f2\n {tls('haproxy 403')}\n http-request deny\n"
            f"frontend f3\n {tls('haproxy 503')}\n default_backend none\nbackend none\n"
            f"frontend f4\n {tls('interim')}\n http-request early-hint Link x\n default_backend interim\n"
            f"backend interim\n server s 127.0.0.1:{self.services['interim']}\n"
            f"frontend f5\n {tls('reset')}\n tcp-request connection reject\n"
            f"frontend f6\n mode tcp\n {tls('secure proxy')}\n default_backend proxy\n"
            f"frontend f7\n mode tcp\n {tls('untrusted proxy', 'other')}\n default_backend proxy\n"
            f"backend proxy\n mode tcp\n server s 127.0.0.1:{self.ports['proxy']}\n")
        return [program, "-db", "-f", home / "conf"]

    def apache2(self, home, program):
        modules = self.unpacked / "usr/lib/apache2/modules"
        if not modules.exists():
            modules = pathlib.Path("/usr/lib/apache2/modules")

        def host(name, lines):
            pem = self.certificates / "ecdsa.pem"
            return (f"Listen 127.0.0.1:{self.ports[name]}\n<VirtualHost 127.0.0.1:{self.ports[name]}>\nSSLEngine on\n"
                    f"SSLCertificateFile {pem}\nProtocols h2 http/1.1\n{lines}\n"
                    f"ProxyPass / http://127.0.0.1:{self.services['service']}/\n</VirtualHost>\n")

        loaded = ["mpm_event", "authz_core", "ssl", "http2", "proxy", "proxy_http", "socache_shmcb"]
        (home / "conf").write_text(
            f"ServerRoot {home}\nServerName a.test\nPidFile pid\nErrorLog log\nMutex file:{home}\n" +
            (f"User #{pwd.getpwnam('nobody').pw_uid}\n" if os.geteuid() == 0 else "") +
            "".join(f"LoadModule {name}_module {modules}/mod_{name}.so\n" for name in loaded) +
            host("apache", "SSLProtocol TLSv1.3") +
            host("apache 403", "<Location />\nRequire all denied\n</Location>") +
            host("apache client", f"SSLProtocol TLSv1.3\nSSLVerifyClient require\n"
                                  f"SSLCACertificateFile {self.certificates}/ca.pem"))
        return [program, "-DFOREGROUND", "-f", home / "conf"]

    def squid(self, home, program):
        usr = self.unpacked / "usr"
        if not (usr / "lib/squid").exists():
            usr = pathlib.Path("/usr")
        share = usr / "share"
        (home / "authenticate").write_text(
            "#!/bin/sh\nwhile read -r login; do case $login in 'builder p@ss') echo OK ;; *) echo ERR ;; esac; done\n")
        (home / "authenticate").chmod(0o755)
        user = ""
        if os.geteuid() == 0:
            shutil.chown(home, "nobody", "nogroup")
            user = "cache_effective_user nobody\ncache_effective_group nogroup\n"
        (home / "conf").write_text(
            f"{user}pid_filename none\ncache_log {home}/log\ncache_store_log none\naccess_log none\n"
            f"coredump_dir {home}\nmime_table {share}/squid/mime.conf\nicon_directory {share}/squid/icons\n"
            f"error_directory {share}/squid/errors/en-us\nunlinkd_program {usr}/lib/squid/unlinkd\nvisible_hostname squid.test\npinger_enable off\n"
            f"shutdown_lifetime 0 seconds\ncache deny all\nmax_filedescriptors 1024\n"
            f"auth_param basic program {home}/authenticate\nauth_param basic children 1\n"
            f"http_port 127.0.0.1:{self.ports['proxy']}\nhttp_port 127.0.0.1:{self.ports['password proxy']}\n"
            f"http_port 127.0.0.1:{self.ports['strict proxy']}\n"
            f"acl password localport {self.ports['password proxy']}\nacl strict localport {self.ports['strict proxy']}\n"
            "acl known proxy_auth REQUIRED\nhttp_access deny strict\nhttp_access allow password known\n"
            "http_access deny password\nhttp_access allow all\n")
        return [program, "-N", "-f", home / "conf"]
