# SPDX-License-Identifier: MIT
"""What bench/run is made of: subjects (who is measured), scenarios (at what), results (figures, table) and charts."""
