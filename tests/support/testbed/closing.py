# SPDX-License-Identifier: MIT
"""What has to be closed, and can be by a `with`."""


class Closing:
    """Has a close()."""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
