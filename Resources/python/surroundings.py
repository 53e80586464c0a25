"""Shields a worker from the user's other Python packages, and lets it trust the system's certificates.

Imports only modules that Python loads when it starts: PYTHONPATH could replace any other module.
"""

import os
import sys

# A file of this name marks an environment that Kelvane has installed.
RECEIPT = "installed-by-kelvane.txt"

# The certificates that Linux distributions and their administrators trust.
_SYSTEM_CERTIFICATES = (
    "/etc/ssl/certs/ca-certificates.crt",  # Debian, Ubuntu, Arch
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",  # Fedora
    "/etc/ssl/ca-bundle.pem",  # openSUSE
    "/etc/ssl/cert.pem",  # Alpine
)


def is_in_own_environment() -> bool:
    """Returns True if Kelvane made this environment, or uv made it for a script, and False if the user made it."""
    is_in_uv_cache = os.path.basename(os.path.dirname(sys.prefix)).startswith(("environments-", "builds-"))
    return is_in_uv_cache or os.path.exists(os.path.join(sys.prefix, RECEIPT))


def ignore_pythonpath() -> None:
    """Unsets PYTHONPATH and removes its folders from sys.path, unless the Python environment is the user's own.

    The packages in these folders belong to other software, perhaps for another version of Python, and would replace
    the environment's packages.
    """
    if not is_in_own_environment() or not (variable := os.environ.pop("PYTHONPATH", "")):
        return
    added = {os.path.normcase(os.path.abspath(folder)) for folder in variable.split(os.pathsep)}
    needed = (os.path.dirname(os.__file__), sys.prefix)
    sys.path[1:] = [
        folder for folder in sys.path[1:] if folder.startswith(needed) or os.path.normcase(folder) not in added
    ]


def trust_the_system() -> None:
    """Makes this process and uv trust the certificates that Linux trusts, unless the user names others.

    uv and Python's libraries come with their own lists, which lack the certificate authority of a company's network.
    They still use these lists on a system without certificates.
    """
    if sys.platform != "linux" or os.environ.get("SSL_CERT_FILE") or os.environ.get("SSL_CERT_DIR"):
        return
    for bundle in _SYSTEM_CERTIFICATES:
        if os.path.isfile(bundle) and os.path.getsize(bundle) > 0:
            os.environ["SSL_CERT_FILE"] = bundle
            return
