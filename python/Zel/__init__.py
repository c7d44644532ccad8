"""The Zel framework's Python package."""


class PermissionError(Exception):
    """A framework permission refusal (raised by _Zel)."""
