"""Encrypted connections to a server with certificates that openssl makes for the test."""
import shutil
import subprocess
import unittest

import support


@unittest.skipUnless(shutil.which("openssl"), "openssl is missing")
class Tls(support.TestCase):
    def openssl(self, *arguments):
        subprocess.run(["openssl", *map(str, arguments)], cwd=self.folder, check=True, capture_output=True,
                       timeout=support.TIMEOUT_S)

    def authority(self, name):
        """NAME.pem, which signs, and its key."""
        self.openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", 2,
                     "-subj", f"/CN={name}", "-keyout", f"{name}.key", "-out", f"{name}.pem")

    def certificate(self, name, authority, names, days=2):
        """NAME.pem for these names, signed by the authority, and its key."""
        (self.folder / f"{name}.ext").write_text(f"subjectAltName={names}\n")
        self.openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj", f"/CN={name}",
                     "-keyout", f"{name}.key", "-out", f"{name}.csr")
        self.openssl("x509", "-req", "-in", f"{name}.csr", "-CA", f"{authority}.pem", "-CAkey", f"{authority}.key",
                     "-CAcreateserial", "-days", days, "-extfile", f"{name}.ext", "-out", f"{name}.pem")

    def tls_server(self, certificate="server", verifies=False):
        authority = f'ca_file: "{self.folder}/ours.pem", verify: true' if verifies else ""
        return self.server(f'tls {{ cert_file: "{self.folder}/{certificate}.pem", key_file: "{self.folder}/{certificate}.key", '
                           f'{authority} }}')

    def setUp(self):
        super().setUp()
        self.authority("ours")
        self.certificate("server", "ours", "IP:127.0.0.1")
        self.messages, self.file = self.generate(200)

    def publish(self, server, *options):
        return self.mdmsg("publish", "--url", server.url, "--subject", "md.{SYMBOL}", "--framing", "u32le", self.file, *options)

    def refused(self, server, options, reason):
        """Both commands end with status 2 and a single line."""
        for result in (self.publish(server, *options),
                       self.mdmsg("subscribe", "--url", server.url, "--subject", "md.>", *options)):
            self.assertEqual((result.status, result.out), (2, b""), result.err)
            self.assertRegex(result.err, f"^mdmsg: {reason}.*\n$")

    def test_trusted_certificate(self):
        server = self.tls_server()
        tls = ("--tls-ca", "ours.pem")
        self.expect(self.publish(server, *tls, "--stream", "FEED", "--create-stream"), 0, "200 acknowledged", "0 lost")
        read = self.mdmsg("subscribe", "--url", server.url, "--stream", "FEED", "--no-wait", "--format", "u32le", *tls)
        self.assertEqual(support.messages_in(read.out), self.messages, read.err)

    def test_certificate_of_another_authority(self):
        self.authority("theirs")
        server = self.tls_server()
        for options in (["--tls-ca", "theirs.pem"], ["--tls"]):  # the system trusts neither
            with self.subTest(options):
                self.refused(server, options, f"cannot connect to {server.url}: SSL Error: .*certificate")

    def test_certificate_for_another_name(self):
        self.certificate("elsewhere", "ours", "DNS:elsewhere.example")
        self.refused(self.tls_server("elsewhere"), ["--tls-ca", "ours.pem"], "cannot connect to .*: SSL Error: .*IP address mismatch")

    def test_client_certificate(self):
        self.authority("theirs")
        self.certificate("client", "ours", "email:feed@example.org")
        self.certificate("stranger", "theirs", "email:feed@example.org")
        server = self.tls_server(verifies=True)
        own = ("--tls-ca", "ours.pem", "--tls-certificate", "client.pem", "--tls-key", "client.key")
        self.expect(self.publish(server, *own), 0, "200 acknowledged, 0 lost")
        for options in ([], ["--tls-certificate", "stranger.pem", "--tls-key", "stranger.key"]):
            with self.subTest(options):
                self.refused(server, ["--tls-ca", "ours.pem", *options], f"cannot connect to {server.url}: "
                             ".*; the server may require a client certificate that it trusts .--tls-certificate.")

    def test_server_without_tls(self):
        server = self.server()
        self.refused(server, ["--tls"], f"cannot connect to {server.url}: Secure Connection not available")

    def test_connection_without_tls(self):
        # The client library encrypts where the server wants it to.
        server = self.tls_server()
        self.refused(server, [], f"cannot connect to {server.url}: SSL Error: .*certificate")

    def test_files_that_are_not_usable(self):
        server = self.tls_server()
        (self.folder / "text.pem").write_text("no certificate\n")
        self.certificate("client", "ours", "email:feed@example.org")
        for options, reason in ((["--tls-ca", "none.pem"], "--tls-ca none.pem: "), (["--tls-ca", "text.pem"], "--tls-ca text.pem: "),
                                (["--tls-certificate", "client.pem", "--tls-key", "server.key"], "--tls-certificate client.pem: "),
                                (["--tls-certificate", "client.pem"], "--tls-certificate requires --tls-key")):
            with self.subTest(options):
                result = self.publish(server, *options)
                self.assertEqual(result.status, 2)
                self.assertTrue(result.err.startswith(f"mdmsg: {reason}"), result.err)


if __name__ == "__main__":
    support.main()
