"""C++ beside the training's Python: builds a shared library on first use, and anew when its sources have changed."""
import ctypes
import glob
import os
import subprocess
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
CAPTURE = os.path.abspath(os.path.join(HERE, "..", "bcap", "src"))
WORK = os.path.join(HERE, "work")


def library(name, sources, flags):
    """-> the loaded library `name` of WORK, for the module of that name. sources: paths of C++ files; flags: of the compiler,
    beside the optimising ones."""
    path = os.path.join(WORK, name + ".so")
    flags_from = [__file__, os.path.join(HERE, name + ".py")]
    read = sources + [os.path.join(CAPTURE, header) for header in os.listdir(CAPTURE)] + flags_from
    if not os.path.exists(path) or os.path.getmtime(path) < max(map(os.path.getmtime, read)):
        os.makedirs(WORK, exist_ok=True)
        # Linked by itself: with relaxed arithmetic among its flags the linker would change that of the whole process.
        with tempfile.TemporaryDirectory(dir=WORK) as objects:
            subprocess.run(["g++", "-std=c++17", "-O3", "-march=native", *flags, "-fPIC", "-I" + CAPTURE, "-c",
                            *sources], check=True, cwd=objects)
            fresh = os.path.join(objects, name)
            subprocess.run(["g++", "-shared", "-o", fresh, *glob.glob(os.path.join(objects, "*.o"))], check=True)
            os.replace(fresh, path)
    return ctypes.CDLL(path)
