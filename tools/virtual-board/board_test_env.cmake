# The environment of every test that brings virtual boards up: the umockdev preload library.
set(OVEX_BOARD_TEST_ENV "LD_PRELOAD=libumockdev-preload.so.0")
