"""What a worker takes from the system and from the environment variables of its user, and what it does not.

Only what Python has loaded before any script is imported here: PYTHONPATH could hide the rest.
"""

import os
import sys

# A file of this name is in every environment that Kelvane has installed.
RECEIPT = "installed-by-kelvane.txt"

# Where Linux distributions keep the certificates that they and the administrator trust.
_SYSTEM_CERTIFICATES = (
    "/etc/ssl/certs/ca-certificates.crt",  # Debian, Ubuntu, Arch
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",  # Fedora
    "/etc/ssl/ca-bundle.pem",  # openSUSE
    "/etc/ssl/cert.pem",  # Alpine
)


def is_in_own_environment() -> bool:
    """Whether Kelvane, or uv for a script of Kelvane's, has installed the packages, and not the user."""
    is_in_uv_cache = os.path.basename(os.path.dirname(sys.prefix)).startswith(("environments-", "builds-"))
    return is_in_uv_cache or os.path.exists(os.path.join(sys.prefix, RECEIPT))


def ignore_pythonpath() -> None:
    """Keeps packages of other software, perhaps for another Python, from hiding those of Kelvane's environment."""
    if not is_in_own_environment() or not (variable := os.environ.pop("PYTHONPATH", "")):
        return
    added = {os.path.normcase(os.path.abspath(folder)) for folder in variable.split(os.pathsep)}
    needed = (os.path.dirname(os.__file__), sys.prefix)
    sys.path[1:] = [
        folder for folder in sys.path[1:] if folder.startswith(needed) or os.path.normcase(folder) not in added
    ]


def trust_the_system() -> None:
    """Makes this process and uv accept the certificates that Linux accepts, unless the user names others.

    Both bring their own list, which lacks the authority of a company's network. Where the system has no certificates
    they go by that list.
    """
    if sys.platform != "linux" or os.environ.get("SSL_CERT_FILE") or os.environ.get("SSL_CERT_DIR"):
        return
    for bundle in _SYSTEM_CERTIFICATES:
        if os.path.isfile(bundle) and os.path.getsize(bundle) > 0:
            os.environ["SSL_CERT_FILE"] = bundle
            return
