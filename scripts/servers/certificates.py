"""Certificates for the servers, made by openssl(1)."""

import subprocess

CURVE = ["-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256"]


def make(folder):
    """Makes ca.pem and, for each certificate that it signs, NAME.pem with the certificate and its key."""

    def openssl(*arguments, text=None):
        subprocess.run(["openssl", *arguments], check=True, capture_output=True, cwd=folder, input=text, text=True)

    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=an authority", "-days", "30", "-keyout",
            "ca-key.pem", "-out", "ca.pem")
    (folder / "index").write_text("")
    (folder / "settings").write_text(
        "[self]\ndatabase = index\nrand_serial = yes\nunique_subject = no\ncopy_extensions = none\n"
        "[names]\ncommonName = supplied\n"
        "[own]\nsubjectAltName = IP:127.0.0.1,IP:::1,DNS:localhost,DNS:two-addresses.test\n"
        "[other]\nsubjectAltName = DNS:other.test\n")

    def sign(name, key, names="own", start="20200101000000Z", end="21200101000000Z"):
        openssl("genpkey", *key, "-out", f"{name}-key.pem")
        openssl("req", "-new", "-key", f"{name}-key.pem", "-subj", "/CN=a server", "-out", "request")
        openssl("ca", "-batch", "-notext", "-config", "settings", "-name", "self", "-policy", "names", "-md", "sha256",
                "-outdir", ".", "-cert", "ca.pem", "-keyfile", "ca-key.pem", "-in", "request", "-out",
                f"{name}-certificate.pem", "-extensions", names, "-startdate", start, "-enddate", end)
        (folder / f"{name}.pem").write_text((folder / f"{name}-certificate.pem").read_text() +
                                            (folder / f"{name}-key.pem").read_text())

    sign("ecdsa", CURVE)
    sign("rsa", ["-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048"])
    sign("weak", ["-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:1024"])
    sign("other", CURVE, names="other")
    sign("expired", CURVE, end="20210101000000Z")
    sign("future", CURVE, start="21190101000000Z")
