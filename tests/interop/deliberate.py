"""What h264tool says where h264_lib differs from the standard on purpose (docs/behaviour.md), worked out from the
elements and bits that trace_headers prints. Whatever else it says is a difference."""

import re

# Reason -> text. Each must occur in the streams.
DELIBERATE = {
    "pps.stop_bit": "the stop bit is read as transform_8x8_mode_flag, the bit behind it as "
                    "pic_scaling_matrix_present_flag",
    "pps.one_bit": "refused, since a stop bit that is the last of its byte is read as transform_8x8_mode_flag and "
                   "nothing follows",
    "pps.second_offset": "second_chroma_qp_index_offset is read only behind a scaling matrix",
    "pps.list_flags": "whether a scaling list is there depends on the sequence parameter set's flags, and their number "
                      "not on transform_8x8_mode_flag",
    "pps.id_bits": "slice_group_id is read with floor(log2) bits of the number of slice groups",
    "pps.id_count": "at most 64 slice_group_id are read",
    "slice.last_modification": "the last entry of the list modifications is kept",
    "slice.weight_flags": "one flag of each kind is kept for all entries of a list in pred_weight_table()",
    "slice.chroma_weights": "chroma weights are not read, so that what follows is not what was transmitted",
    "slice.operations": "refused with more than seven memory management operations, the last included",
    "slice.change_cycle": "refused at slice_group_change_cycle",
}

_KEPT_IDS = 64
_KEPT_OPERATIONS = 7


class Expected:
    """The elements that h264tool prints; None when it refuses the unit. Those behind the last are not compared when
    rest_is_undefined. It reports, and prints all the same, a unit that ends_early."""

    def __init__(self, elements, reasons=(), rest_is_undefined=False, ends_early=False):
        self.elements = elements
        self.reasons = set(reasons)
        self.rest_is_undefined = rest_is_undefined
        self.ends_early = ends_early


class _End(Exception):
    """There are no more bits."""


class _Bits:
    def __init__(self, bits):
        self.bits = bits
        self.position = 0

    def u(self, count):
        bits = self.bits[self.position:self.position + count]
        if len(bits) < count:
            raise _End
        self.position += count
        return int("0" + bits, 2)

    def ue(self):
        zeros = 0
        while self.u(1) == 0:
            zeros += 1
        return (1 << zeros) - 1 + self.u(zeros)

    def se(self):
        code = self.ue()
        return (code + 1) // 2 if code % 2 else -(code // 2)


class ParameterSets:
    """The elements of a stream's parameter sets by their ids."""

    def __init__(self):
        self.sps = {}
        self.pps = {}

    def add(self, structure, elements):
        if structure == "sps":
            self.sps[elements.get("seq_parameter_set_id")] = elements
        elif structure == "pps":
            self.pps[elements["pic_parameter_set_id"]] = elements


def expected(structure, unit, theirs, sets):
    """What h264tool says of a unit of trace_headers, whose elements are theirs."""
    if structure == "pps":
        return _expected_pps(unit, theirs, sets.sps[theirs["seq_parameter_set_id"]])
    if structure == "slice":
        return _expected_slice(unit, theirs, sets.pps[theirs["pic_parameter_set_id"]])
    return Expected(dict(theirs))


def _until(elements, name):
    """The elements before the first of that name."""
    result = {}
    for path, value in elements.items():
        if path.partition("[")[0] == name:
            break
        result[path] = value
    return result


def _expected_pps(unit, theirs, sps):
    text = "".join(element.bits for element in unit.elements)
    if text.endswith("10000000"):
        text = text[:-8]
    bits = _Bits(text)
    groups = theirs["num_slice_groups_minus1"] + 1
    ids = theirs.get("pic_size_in_map_units_minus1", -1) + 1
    reasons = set()
    if ids > 0 and groups & (groups - 1):
        reasons.add("pps.id_bits")
    if ids > _KEPT_IDS:
        reasons.add("pps.id_count")
    if reasons:
        bits.position = next(e.position for e in unit.elements if e.name.startswith("slice_group_id"))
        elements = _until(theirs, "slice_group_id")
        read = _read_from_slice_group_id(bits, elements, groups, min(ids, _KEPT_IDS))
        if read is not None:
            return Expected(elements if read else None, reasons, ends_early=read)
    else:
        flag = next(e for e in unit.elements if e.name == "redundant_pic_cnt_present_flag")
        bits.position = flag.position + 1
        elements = _until(theirs, "transform_8x8_mode_flag")
    if not _read_tail(bits, elements, sps):
        elements = None
    if not reasons and elements != theirs:
        reasons.add(_tail_reason(elements, theirs))
    return Expected(elements, reasons)


def _read_from_slice_group_id(bits, elements, groups, ids):
    """Adds the elements up to redundant_pic_cnt_present_flag. Whether a unit that ends before it is accepted, else
    None."""
    accepted = True
    try:
        for i in range(ids):
            elements["slice_group_id[%d]" % i] = bits.u(groups.bit_length() - 1)
        accepted = False
        for name in ("num_ref_idx_l0_default_active_minus1", "num_ref_idx_l1_default_active_minus1"):
            elements[name] = bits.ue()
        elements["weighted_pred_flag"] = bits.u(1)
        accepted = True
        elements["weighted_bipred_idc"] = bits.u(2)
        accepted = False
        for name in ("pic_init_qp_minus26", "pic_init_qs_minus26", "chroma_qp_index_offset"):
            elements[name] = bits.se()
        for name in ("deblocking_filter_control_present_flag", "constrained_intra_pred_flag",
                     "redundant_pic_cnt_present_flag"):
            elements[name] = bits.u(1)
    except _End:
        return accepted
    return None


def _read_tail(bits, elements, sps):
    """Adds the elements from transform_8x8_mode_flag on. False when h264_lib refuses the unit."""
    if bits.position == len(bits.bits):
        return True
    try:
        elements["transform_8x8_mode_flag"] = bits.u(1)
        elements["pic_scaling_matrix_present_flag"] = bits.u(1)
        if elements["pic_scaling_matrix_present_flag"] == 0:
            return True
        for i in range(12 if sps.get("chroma_format_idc") == 3 else 8):
            path = "scaling_list[%d]." % i
            elements[path + "pic_scaling_list_present_flag"] = bits.u(1)
            if sps.get(path + "seq_scaling_list_present_flag"):
                scale = 8
                for j in range(16 if i < 6 else 64):
                    delta = bits.se()
                    elements["%sdelta_scale[%d]" % (path, j)] = delta
                    scale = (scale + delta + 256) % 256
                    if scale == 0:
                        break
        elements["second_chroma_qp_index_offset"] = bits.se()
    except _End:
        return False
    return True


def _tail_reason(elements, theirs):
    if "transform_8x8_mode_flag" not in theirs:
        return "pps.one_bit" if elements is None else "pps.stop_bit"
    return "pps.list_flags" if theirs["pic_scaling_matrix_present_flag"] else "pps.second_offset"


def _expected_slice(unit, theirs, pps):
    operations = [path for path in theirs if path.endswith("].memory_management_control_operation")]
    if len(operations) > _KEPT_OPERATIONS:
        return Expected(None, {"slice.operations"})
    if "slice_group_change_cycle" in theirs:
        return Expected(None, {"slice.change_cycle"})
    reasons = set()
    elements = {}
    for path, value in theirs.items():
        if path.startswith("ref_pic_list_modification."):
            if "ref_pic_list_modification.ref_pic_list_modification_flag_l0" not in elements:
                elements.update(_modifications(theirs, reasons))
        elif path.startswith("pred_weight_table."):
            if "pred_weight_table.luma_log2_weight_denom" not in elements:
                elements.update(_weight_table(theirs, reasons))
                if "slice.chroma_weights" in reasons:
                    return Expected(elements, reasons, rest_is_undefined=True)
        else:
            elements[path] = value
    elements.update(_positions(unit))
    return Expected(elements, reasons)


def _modifications(theirs, reasons):
    """The flags, and behind the last that is set the last value of each element."""
    prefix = "ref_pic_list_modification."
    flags = [path for path in theirs if path.startswith(prefix + "ref_pic_list_modification_flag")]
    last_set = next((path for path in reversed(flags) if theirs[path]), None)
    values = {}
    entries = 0
    for path, value in theirs.items():
        if path.startswith(prefix) and path not in flags:
            name = path.rpartition(".")[2]
            values[prefix + name] = value
            entries += name == "modification_of_pic_nums_idc"
    if entries:
        reasons.add("slice.last_modification")
    elements = {}
    for path in flags:
        elements[path] = theirs[path]
        if path == last_set:
            for name in ("modification_of_pic_nums_idc", "abs_diff_pic_num_minus1", "long_term_pic_num"):
                if prefix + name in values:
                    elements[prefix + name] = values[prefix + name]
    return elements


def _weight_table(theirs, reasons):
    """List by list the last luma flag, the luma weights and offsets and the last chroma flag. When a chroma flag is
    set, the elements up to it whose places in the record are not written again."""
    prefix = "pred_weight_table."
    table = {path[len(prefix):]: value for path, value in theirs.items() if path.startswith(prefix)}
    elements = {prefix + name: table[name] for name in ("luma_log2_weight_denom", "chroma_log2_weight_denom")
                if name in table}
    for kind in ("l0", "l1"):
        flags = {}
        lists = {"luma_weight_" + kind: {}, "luma_offset_" + kind: {}}
        for path, value in table.items():
            name, _, index = path.partition("[")
            if name in lists:
                lists[name][prefix + path] = value
            elif name in ("luma_weight_%s_flag" % kind, "chroma_weight_%s_flag" % kind):
                flags[prefix + name] = value
                if int(index.rstrip("]")) > 0:
                    reasons.add("slice.weight_flags")
                if name.startswith("chroma") and value:
                    reasons.add("slice.chroma_weights")
                    break
        if "slice.chroma_weights" in reasons:
            for values in lists.values():
                elements.update(values)
            return elements
        for path, value in flags.items():
            if "luma" in path:
                elements[path] = value
        for values in lists.values():
            elements.update(values)
        elements.update((path, value) for path, value in flags.items() if "chroma" in path)
    return elements


def _positions(unit):
    """The bit positions, behind the NAL unit header, that h264tool prints."""
    at = {element.name: element.position - 8 for element in reversed(unit.elements)}
    in_order = [element.name for element in unit.elements]
    marking = ("no_output_of_prior_pics_flag", "adaptive_ref_pic_marking_mode_flag")
    behind_references = ("ref_pic_list_modification_flag_l0", "luma_log2_weight_denom", "cabac_init_idc",
                         "slice_qp_delta") + marking
    last = next(e for e in reversed(unit.elements) if not re.match("cabac_alignment_one_bit|rbsp_", e.name))
    end = last.position + len(last.bits)
    frame_num = next(element for element in unit.elements if element.name == "frame_num")
    positions = {"derived.frame_num_bitoffset": at["frame_num"], "derived.frame_num_bitlength": len(frame_num.bits),
                 "derived.ref_pic_list_modification_bitoffset":
                     at[next(name for name in in_order if name in behind_references)]}
    if unit.value("nal_ref_idc"):
        positions["derived.dec_ref_pic_marking_bitoffset"] = at[next(name for name in in_order if name in marking)]
    positions["derived.slice_header_bits"] = end - 8
    return positions
