#!/bin/sh
# The CAN classes themselves, on the board's kernel.
exec build/release/tests/board/board_can
