"""The streams that are compared: encoded by libx264, changed by h264_metadata, and with parameter sets made by hand."""

import os
import subprocess

import h264_writer

SIZE = "64x48"

# 4x4 lists for x264's cqm4 and cqmfile: any numbers from 1 to 255.
_LIST4 = ",".join(str(6 + 3 * i) for i in range(16))
_LIST8 = ",".join(str(9 + i // 2) for i in range(64))
_HRD = "bitrate=200:vbv-maxrate=300:vbv-bufsize=150:nal-hrd=vbr"
_CBR = "bitrate=200:vbv-maxrate=200:vbv-bufsize=100:nal-hrd=cbr"


def x264(params="", pix_fmt="yuv420p", size=SIZE, rate="25", frames=5, filters="null", options=()):
    return {"params": params, "pix_fmt": pix_fmt, "size": size, "rate": rate, "frames": frames, "filters": filters,
            "options": options}


ENCODED = {
    "baseline": x264("ref=1", options=("-profile:v", "baseline")),
    "main": x264(options=("-profile:v", "main")),
    "high": x264(options=("-profile:v", "high")),
    "high10": x264(pix_fmt="yuv420p10le"),
    "high422": x264(pix_fmt="yuv422p"),
    "high422_10": x264(pix_fmt="yuv422p10le"),
    "high444": x264(pix_fmt="yuv444p"),
    "high444_10": x264(pix_fmt="yuv444p10le"),
    "high444_rgb": x264("colormatrix=GBR:fullrange=on", pix_fmt="yuv444p"),
    "gray": x264(pix_fmt="gray"),
    "gray10": x264(pix_fmt="gray10le"),
    "lossless": x264("qp=0"),
    "lossless_444": x264("qp=0", pix_fmt="yuv444p10le"),
    "intra_only": x264("keyint=1", pix_fmt="yuv422p10le"),
    "avc_intra": x264("avcintra-class=50:tff=1", pix_fmt="yuv420p10le", size="1440x1080", frames=1,
                      options=("-preset", "ultrafast")),
    "tff": x264("tff=1"),
    "bff": x264("bff=1"),
    "fake_interlaced": x264("fake-interlaced=1"),
    "tff_422": x264("tff=1:" + _HRD, pix_fmt="yuv422p10le"),
    "tff_baseline": x264("tff=1:cabac=0:8x8dct=0:bframes=0"),
    "hrd_vbr": x264(_HRD),
    "hrd_cbr": x264(_CBR),
    "hrd_vbr_tff": x264(_HRD + ":tff=1:aud=1"),
    "hrd_cbr_bff": x264(_CBR + ":bff=1:aud=1"),
    "hrd_large": x264("nal-hrd=vbr:bitrate=1000:vbv-maxrate=300000:vbv-bufsize=240000:level=5.2"),
    "hrd_small": x264("nal-hrd=vbr:bitrate=17:vbv-maxrate=23:vbv-bufsize=41"),
    "hrd_odd_rate": x264("nal-hrd=vbr:bitrate=100:vbv-maxrate=123:vbv-bufsize=457", rate="30000/1001"),
    "hrd_bluray": x264(_HRD + ":bluray-compat=1:level=4.1:slices=4", size="64x64"),
    "sps_id": x264("sps-id=5:" + _HRD),
    "stitchable": x264("stitchable=1"),
    "aud": x264("aud=1"),
    "cqm_jvt": x264("cqm=jvt"),
    "cqm_jvt_444": x264("cqm=jvt", pix_fmt="yuv444p"),
    "cqm_lists": x264("cqm4=%s:cqm8=%s" % (_LIST4, _LIST8)),
    "cqm_lists_444": x264("cqm4i=%s:cqm8p=%s" % (_LIST4, _LIST8), pix_fmt="yuv444p"),
    "cqm_file": x264("cqmfile=cqm.cfg"),
    "sar_square": x264(filters="setsar=1"),
    "sar_table": x264(filters="setsar=40/33"),
    "sar_extended": x264(filters="setsar=sar=1234/567:max=65535"),
    "overscan_show": x264("overscan=show"),
    "overscan_crop": x264("overscan=crop"),
    "format_pal": x264("videoformat=pal"),
    "format_secam_full": x264("videoformat=secam:fullrange=on"),
    "colour_709": x264("colorprim=bt709:transfer=bt709:colormatrix=bt709"),
    "colour_2020": x264("colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:videoformat=component",
                        pix_fmt="yuv420p10le"),
    "colour_film": x264("colorprim=film:transfer=linear:colormatrix=YCgCo"),
    "chroma_location_0": x264("chromaloc=0"),
    "chroma_location_5": x264("chromaloc=5"),
    "rate_ntsc": x264(rate="30000/1001"),
    "rate_film_fixed": x264("force-cfr=1", rate="24000/1001"),
    "rate_60_fixed": x264("force-cfr=1", rate="60"),
    "rate_odd": x264(rate="12345/678"),
    "pic_struct": x264("pic-struct=1"),
    "pic_struct_cfr_tff": x264("pic-struct=1:force-cfr=1:tff=1", rate="30000/1001"),
    "crop_420": x264(size="50x38"),
    "crop_420_tff": x264("tff=1", size="62x44"),
    "crop_422": x264(size="50x37", pix_fmt="yuv422p"),
    "crop_444": x264(size="51x37", pix_fmt="yuv444p"),
    "crop_gray": x264(size="51x37", pix_fmt="gray"),
    "crop_rectangle": x264("crop-rect=2,4,6,8"),
    "wide": x264(size="720x16", frames=2),
    "tall": x264(size="16x576", frames=2),
    "one_reference": x264("ref=1:bframes=0"),
    "many_references": x264("ref=16:bframes=3:b-pyramid=normal", frames=24),
    "pyramid_strict": x264("bframes=7:b-pyramid=strict:b-adapt=0", frames=12),
    "no_reordering": x264("bframes=0:keyint=3", frames=7),
    "long_gop": x264("keyint=infinite:bframes=0"),
    "intra_refresh": x264("intra-refresh=1:keyint=4:bframes=0", frames=10),
    "open_gop": x264("open-gop=1:keyint=4:min-keyint=4:bframes=2:b-adapt=0", frames=12),
    "slices": x264("slices=3:cabac=0"),
    "slices_cabac": x264("slices=3:bframes=2:b-adapt=0:ref=4", frames=9),
    "slices_mbaff": x264("slices=2:tff=1:bframes=2:b-adapt=0:ref=4", frames=9),
    "weights": x264("weightp=2:ref=4:bframes=2:b-adapt=0", filters="fade=in:0:10", frames=16),
    "weights_cavlc": x264("weightp=2:ref=4:cabac=0:bframes=0", filters="fade=out:2:10", frames=16),
    "weights_gray": x264("weightp=2:ref=6:bframes=2:b-adapt=0:slices=2", pix_fmt="gray", filters="fade=in:0:10",
                         frames=16),
    "weights_luma": x264("weightp=2:ref=4:bframes=0", filters="fade=in:0:10,lutyuv=u=128:v=128", frames=16),
    "weights_implicit": x264("weightb=1:weightp=0:bframes=3:b-adapt=0:ref=4:direct=temporal", frames=12),
    "no_weights": x264("weightb=0:weightp=0:bframes=3:b-adapt=0:direct=auto:constrained-intra=1", frames=12),
    "temporal_mbaff": x264("bff=1:direct=temporal:bframes=3:b-adapt=0:ref=5:b-pyramid=normal", frames=12),
    "deblocking": x264("deblock=-3,2:chroma-qp-offset=5:qp=31:ref=5:bframes=2:b-adapt=0", frames=9),
    "no_deblocking": x264("no-deblock=1"),
    "level_1b": x264("level=1b:bframes=0:ref=1", options=("-profile:v", "baseline")),
    "level_1b_high": x264("level=1b"),
    "level_1": x264("level=1"),
    "level_5_1": x264("level=5.1"),
    "level_6_2": x264("level=6.2"),
}

# h264_metadata's options, on one of the streams above.
CHANGED = {
    "aspect_ratio_255": ("high", "sample_aspect_ratio=65535/65521"),
    "aspect_ratio_table": ("hrd_vbr_tff", "sample_aspect_ratio=160/99"),
    "full_range": ("high", "video_full_range_flag=1:video_format=7"),
    "limited_range": ("format_secam_full", "video_full_range_flag=0:video_format=0"),
    "colour_codes": ("main", "colour_primaries=255:transfer_characteristics=128:matrix_coefficients=14"),
    "overscan_added": ("baseline", "overscan_appropriate_flag=1"),
    "chroma_location": ("high", "chroma_sample_loc_type=3"),
    "tick_rate": ("hrd_vbr", "tick_rate=120000/1001:fixed_frame_rate_flag=1"),
    "tick_rate_high": ("hrd_cbr", "tick_rate=4294967295/65537:fixed_frame_rate_flag=0"),
    "crop_all": ("high", "crop_left=2:crop_right=4:crop_top=6:crop_bottom=8"),
    "crop_tff": ("tff", "crop_left=2:crop_right=4:crop_top=4:crop_bottom=8"),
    "crop_444": ("high444", "crop_left=1:crop_right=3:crop_top=5:crop_bottom=7"),
    "level_changed": ("high", "level=6.2"),
    "constraints_cleared": ("level_1b", "zero_new_constraint_set_flags=1"),
}


def _quiet(command, directory):
    result = subprocess.run(command, cwd=directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, check=False)
    if result.returncode != 0:
        raise RuntimeError("%s: %s" % (" ".join(command), result.stdout.decode("utf-8", "replace")))


def encode(ffmpeg, directory, name):
    """Encodes a stream of ENCODED and returns its path."""
    stream = ENCODED[name]
    params = "threads=1:lookahead-threads=1:cpu-independent=1" + (":" if stream["params"] else "") + stream["params"]
    path = os.path.join(directory, name + ".h264")
    _quiet([ffmpeg, "-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
            "testsrc2=size=%s:rate=%s" % (stream["size"], stream["rate"]), "-vf", stream["filters"],
            "-frames:v", str(stream["frames"]), "-pix_fmt", stream["pix_fmt"], "-c:v", "libx264", *stream["options"],
            "-x264-params", params, "-f", "h264", "-y", path], directory)
    return path


def change(ffmpeg, directory, name):
    """Applies an entry of CHANGED to its stream, which is encoded, and returns the path."""
    source, options = CHANGED[name]
    path = os.path.join(directory, "changed_" + name + ".h264")
    _quiet([ffmpeg, "-hide_banner", "-loglevel", "error", "-f", "h264", "-i",
            os.path.join(directory, source + ".h264"), "-c", "copy", "-bsf:v", "h264_metadata=" + options, "-f",
            "h264", "-y", path], directory)
    return path


def write_scaling_matrix(directory):
    """The file of the stream cqm_file."""
    with open(os.path.join(directory, "cqm.cfg"), "w", encoding="ascii") as file:
        for name in ("INTRA4X4_LUMA", "INTRA4X4_CHROMAU", "INTRA4X4_CHROMAV", "INTER4X4_LUMA", "INTER4X4_CHROMAU",
                     "INTER4X4_CHROMAV"):
            file.write("%s = %s\n" % (name, _LIST4))
        for name in ("INTRA8X8_LUMA", "INTER8X8_LUMA"):
            file.write("%s = %s\n" % (name, _LIST8))


def splice(directory, base, name, units):
    """Puts the units behind the first parameter set of the stream base, which goes on to be what it was."""
    with open(os.path.join(directory, base + ".h264"), "rb") as file:
        base_units = h264_writer.split(file.read())
    at = [h264_writer.nal_unit_type(unit) for unit in base_units].index(7) + 1
    path = os.path.join(directory, "made_" + name + ".h264")
    with open(path, "wb") as file:
        file.write(b"".join(base_units[:at] + units + base_units[at:]))
    return path


def append(directory, base, name, units):
    """Puts the units behind the stream base."""
    path = os.path.join(directory, "made_" + name + ".h264")
    with open(os.path.join(directory, base + ".h264"), "rb") as file:
        data = file.read()
    with open(path, "wb") as file:
        file.write(data + b"".join(units))
    return path
