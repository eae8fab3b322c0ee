# The presenting tests' reference: every IN.png resized to WIDTH x HEIGHT with Pillow's bilinear
# (triangle) filter and written as OUT.png. Run with Debian's /usr/bin/python3 (python3-pil).
#   resample.py WIDTH HEIGHT IN.png OUT.png [IN.png OUT.png ...]
import sys

from PIL import Image

width, height = int(sys.argv[1]), int(sys.argv[2])
files = sys.argv[3:]
for source, target in zip(files[0::2], files[1::2]):
    Image.open(source).convert("RGB").resize((width, height), Image.BILINEAR).save(target)
