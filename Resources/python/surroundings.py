"""Shields a worker from the user's other Python packages, and lets it trust the system's certificates.

Imports only modules that Python has loaded before any script: PYTHONPATH could replace all others.
"""

import os
import sys

# Marks every environment that Kelvane has installed.
RECEIPT = "installed-by-kelvane.txt"

# Where Linux distributions keep the certificates that they and their administrators trust.
_SYSTEM_CERTIFICATES = (
    "/etc/ssl/certs/ca-certificates.crt",  # Debian, Ubuntu, Arch
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",  # Fedora
    "/etc/ssl/ca-bundle.pem",  # openSUSE
    "/etc/ssl/cert.pem",  # Alpine
)


def is_in_own_environment() -> bool:
    """Returns True if the packages were installed by Kelvane, or by uv for one of its scripts, not by the user."""
    is_in_uv_cache = os.path.basename(os.path.dirname(sys.prefix)).startswith(("environments-", "builds-"))
    return is_in_uv_cache or os.path.exists(os.path.join(sys.prefix, RECEIPT))


def ignore_pythonpath() -> None:
    """Prevents packages of other software, perhaps for another Python, from replacing those of the environment."""
    if not is_in_own_environment() or not (variable := os.environ.pop("PYTHONPATH", "")):
        return
    added = {os.path.normcase(os.path.abspath(folder)) for folder in variable.split(os.pathsep)}
    needed = (os.path.dirname(os.__file__), sys.prefix)
    sys.path[1:] = [
        folder for folder in sys.path[1:] if folder.startswith(needed) or os.path.normcase(folder) not in added
    ]


def trust_the_system() -> None:
    """Makes this process and uv trust the certificates that Linux trusts, unless the user names others.

    Both come with a list of their own, which lacks the authority of a company's network. They fall back to it on a
    system without certificates.
    """
    if sys.platform != "linux" or os.environ.get("SSL_CERT_FILE") or os.environ.get("SSL_CERT_DIR"):
        return
    for bundle in _SYSTEM_CERTIFICATES:
        if os.path.isfile(bundle) and os.path.getsize(bundle) > 0:
            os.environ["SSL_CERT_FILE"] = bundle
            return
