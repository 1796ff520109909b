"""The exception that every failure is told by."""


class KestaError(Exception):
    """A failure. Each kind has an exception of its own, derived from this one.

    code: the library's code, or the token library's.
    kind: what went wrong, whatever the token library's numbers are.
    operation: the name of the library's function, or "Load".
    message: one sentence without a full stop.
    """

    def __init__(self, code: int, kind: str, operation: str, message: str) -> None:
        super().__init__(code, kind, operation, message)
        self.code = code
        self.kind = kind
        self.operation = operation
        self.message = message

    def __str__(self) -> str:
        return f"{self.operation}: {self.message} ({code_text(self.code)})"


def code_text(code: int) -> str:
    """The library's codes are known in decimal, the token library's in hexadecimal."""
    return str(code) if -1000 < code <= 0 else f"0x{code & 0xFFFFFFFF:08X}"
