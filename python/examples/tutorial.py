import numpy as np

import ovexsdk

print(ovexsdk.list_boards())

with ovexsdk.Board("usb:sn:OVX00001") as board:
    board.power_up()
    chip = board.chip
    chip.configure("sdk/config-loader/tests/data/tpx3.xml")
    chip.threshold_kev = 6.0
    print(f"chip {chip.id}: {chip.width} x {chip.height} pixels, "
          f"threshold {chip.threshold_kev:.2f} keV")

    hit_map = np.zeros(chip.width * chip.height, np.uint64)
    hits = 0
    for block in board.acquire("data-driven", "sorted", seconds=2):
        hits += len(block)
        pixel = block["y"].astype(np.intp) * chip.width + block["x"]
        hit_map += np.bincount(pixel, minlength=hit_map.size).astype(np.uint64)
    hit_map = hit_map.reshape(chip.height, chip.width)

y, x = np.unravel_index(hit_map.argmax(), hit_map.shape)
print(f"{hits} hits; the hottest pixel is ({x}, {y}) with {hit_map[y, x]}")

try:
    import matplotlib.pyplot as plt
except ImportError:
    plt = None
if plt is not None:
    plt.imshow(hit_map, origin="lower", cmap="magma")
    plt.colorbar(label="hits")
    plt.savefig("hit_map.png")
    print("the hit map is in hit_map.png")
