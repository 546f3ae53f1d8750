"""Builds picture parameter sets and slices and says what a dump of them must show."""

from stream_builder import Syntax, nal_unit

SLICE_TYPES = ("P", "B", "I", "SP", "SI")


class Pps:
    """A picture parameter set: payload is its RBSP, elements what its JSON object must be.

    groups writes what follows num_slice_groups_minus1. tail: None, or the transform_8x8_mode_flag, and the scaling
    lists (a flag and the deltas, None without deltas) with second_chroma_qp_index_offset behind them.
    """

    def __init__(self, sps, pps_id=0, cabac=0, bottom=0, groups=None, references=(0, 0), weighted_pred_flag=0,
                 weighted_bipred_idc=0, qp=(0, 0, 0), deblocking=0, redundant=0, tail=None):
        self.sps = sps
        s = Syntax()
        s.ue("pic_parameter_set_id", pps_id)
        s.ue("seq_parameter_set_id", sps.elements["seq_parameter_set_id"])
        s.u(1, "entropy_coding_mode_flag", cabac)
        s.u(1, "bottom_field_pic_order_in_frame_present_flag", bottom)
        if groups is None:
            s.ue("num_slice_groups_minus1", 0)
        else:
            groups(s)
        s.ue("num_ref_idx_l0_default_active_minus1", references[0])
        s.ue("num_ref_idx_l1_default_active_minus1", references[1])
        s.u(1, "weighted_pred_flag", weighted_pred_flag)
        self.bits_before_bipred = len(s.writer.bits)
        s.u(2, "weighted_bipred_idc", weighted_bipred_idc)
        s.se("pic_init_qp_minus26", qp[0])
        s.se("pic_init_qs_minus26", qp[1])
        s.se("chroma_qp_index_offset", qp[2])
        s.u(1, "deblocking_filter_control_present_flag", deblocking)
        s.u(1, "constrained_intra_pred_flag", 0)
        s.u(1, "redundant_pic_cnt_present_flag", redundant)
        self.elements = dict(s.elements)
        if tail is not None:
            self._write_tail(s, *tail)
            self.elements = s.elements
        elif len(s.writer.bits) % 8 != 0:  # the stop bit is read as an element
            self.elements.update(transform_8x8_mode_flag=1, pic_scaling_matrix_present_flag=0)
            if groups is None:
                self.elements["derived"] = {"rbsp_stop_one_bit": "transform_8x8_mode_flag"}
        self.writer = s.writer
        self.payload = s.writer.with_trailing_bits()

    @staticmethod
    def _write_tail(s, transform_8x8_mode_flag, scaling_lists=None, second_chroma_qp_index_offset=0):
        s.u(1, "transform_8x8_mode_flag", transform_8x8_mode_flag)
        s.u(1, "pic_scaling_matrix_present_flag", int(scaling_lists is not None))
        if scaling_lists is None:
            s.writer.se(second_chroma_qp_index_offset)  # is not read
            return
        s.elements["scaling_list"] = []
        for flag, deltas in scaling_lists:
            one = Syntax(s.writer)
            one.u(1, "pic_scaling_list_present_flag", flag)
            if deltas is not None:
                one.elements["delta_scale"] = deltas
                for delta in deltas:
                    s.writer.se(delta)
            s.elements["scaling_list"].append(one.elements)
        s.se("second_chroma_qp_index_offset", second_chroma_qp_index_offset)

    def unit(self, **header):
        return nal_unit(8, self.payload, **header)


def slice_groups(count_minus1, map_type, write=None):
    """Elements of slice groups: write gets the syntax behind slice_group_map_type."""

    def write_all(s):
        s.ue("num_slice_groups_minus1", count_minus1)
        s.ue("slice_group_map_type", map_type)
        if write is not None:
            write(s)

    return write_all


def ue_list(s, lists, kept=8):
    """Interleaved lists of ue(v) by name, of which a dump shows the first entries."""
    for entries in zip(*lists.values()):
        for value in entries:
            s.writer.ue(value)
    for name, values in lists.items():
        s.elements[name] = list(values[:kept])


class Slice:
    """A slice: elements is what the JSON object of its header must be.

    modifications: for each list the (idc, value) pairs before the ending 3, None without modification. weights: for
    each list the entries, (weight, offset) or None; four numbers behind these are weights and offsets of chroma, which
    elements do not tell. marking: pairs of an operation and its values by name.
    """

    def __init__(self, pps, slice_type, unit_type=1, ref_idc=2, first_mb=0, frame_num=0, field=None, poc_lsb=0,
                 delta_bottom=0, deltas=(0, 0), idr_pic_id=0, redundant_pic_cnt=0, colour_plane_id=0, references=None,
                 modifications=(None, None), weights=None, denominators=(5, 4), marking=(), cabac_init_idc=0, qp=0,
                 deblocking=(0, 0, 0), data=b"\xab\xcd"):
        self.unit_type, self.ref_idc = unit_type, ref_idc
        sps, kind = pps.sps.elements, SLICE_TYPES[slice_type % 5]
        s = self.syntax = Syntax()
        s.ue("first_mb_in_slice", first_mb)
        s.ue("slice_type", slice_type)
        s.elements["slice_type_name"] = kind
        s.ue("pic_parameter_set_id", pps.elements["pic_parameter_set_id"])
        if sps.get("separate_colour_plane_flag", 0):
            s.u(2, "colour_plane_id", colour_plane_id)
        derived = {"frame_num_bitoffset": len(s.writer.bits), "frame_num_bitlength": 6}
        s.u(6, "frame_num", frame_num)
        if not sps["frame_mbs_only_flag"]:
            s.u(1, "field_pic_flag", int(field is not None))
        if field is not None:
            s.u(1, "bottom_field_flag", field)
        if unit_type == 5:
            s.ue("idr_pic_id", idr_pic_id)
        bottom = pps.elements["bottom_field_pic_order_in_frame_present_flag"] and field is None
        if sps["pic_order_cnt_type"] == 0:
            s.u(8, "pic_order_cnt_lsb", poc_lsb)
            if bottom:
                s.se("delta_pic_order_cnt_bottom", delta_bottom)
        elif sps["pic_order_cnt_type"] == 1 and not sps["delta_pic_order_always_zero_flag"]:
            s.elements["delta_pic_order_cnt"] = list(deltas[:2 if bottom else 1])
            for delta in s.elements["delta_pic_order_cnt"]:
                s.writer.se(delta)
        if pps.elements["redundant_pic_cnt_present_flag"]:
            s.ue("redundant_pic_cnt", redundant_pic_cnt)
        if kind == "B":
            s.u(1, "direct_spatial_mv_pred_flag", 1)
        lists = {"P": 1, "SP": 1, "B": 2}.get(kind, 0)
        if lists:
            s.u(1, "num_ref_idx_active_override_flag", int(references is not None))
            for i in range(lists if references is not None else 0):
                s.ue("num_ref_idx_l%d_active_minus1" % i, references[i])
        derived["ref_pic_list_modification_bitoffset"] = len(s.writer.bits)
        if lists:
            self._write_modifications(s.structure("ref_pic_list_modification"), modifications[:lists])
        if weights is not None:
            chroma = sps.get("derived", {}).get("ChromaArrayType", 1) != 0
            self._write_weights(s.structure("pred_weight_table"), weights, denominators, chroma)
        if ref_idc:
            derived["dec_ref_pic_marking_bitoffset"] = len(s.writer.bits)
            self._write_marking(s.structure("dec_ref_pic_marking"), marking)
        if pps.elements["entropy_coding_mode_flag"] and lists:
            s.ue("cabac_init_idc", cabac_init_idc)
        s.se("slice_qp_delta", qp)
        if kind == "SP":
            s.u(1, "sp_for_switch_flag", 1)
        if kind in ("SP", "SI"):
            s.se("slice_qs_delta", -qp)
        if pps.elements["deblocking_filter_control_present_flag"]:
            s.ue("disable_deblocking_filter_idc", deblocking[0])
            if deblocking[0] != 1:
                s.se("slice_alpha_c0_offset_div2", deblocking[1])
                s.se("slice_beta_offset_div2", deblocking[2])
        derived["slice_header_bits"] = len(s.writer.bits)
        self.elements = dict(s.elements, derived=derived)
        self.payload = s.writer.with_trailing_bits() + data

    @staticmethod
    def _write_modifications(s, modifications):
        last = {}
        for i, entries in enumerate(modifications):
            s.u(1, "ref_pic_list_modification_flag_l%d" % i, int(entries is not None))
            if entries is None:
                continue
            for idc, value in entries:
                s.writer.ue(idc)
                s.writer.ue(value)
                last["long_term_pic_num" if idc == 2 else "abs_diff_pic_num_minus1"] = value
            s.writer.ue(3)
            for name in ("modification_of_pic_nums_idc", "abs_diff_pic_num_minus1", "long_term_pic_num"):
                s.elements.pop(name, None)  # the last list's stand behind its flag
            s.elements["modification_of_pic_nums_idc"] = 3
            s.elements.update((name, last[name]) for name in ("abs_diff_pic_num_minus1", "long_term_pic_num")
                              if name in last)

    @staticmethod
    def _write_weights(s, weights, denominators, chroma):
        s.ue("luma_log2_weight_denom", denominators[0])
        if chroma:
            s.ue("chroma_log2_weight_denom", denominators[1])
        for i, entries in enumerate(weights):
            for entry in entries:
                s.u(1, "luma_weight_l%d_flag" % i, int(entry is not None))
                luma, colours = (entry or ())[:2], (entry or ())[2:]
                for value in luma:
                    s.writer.se(value)
                if chroma:
                    s.writer.u(1, int(bool(colours)))
                for value in colours:
                    s.writer.se(value)
            for j, name in enumerate(("luma_weight_l%d", "luma_offset_l%d")):
                s.elements[name % i] = [None if entry is None else entry[j] for entry in entries[:32]]
            if chroma:
                s.elements["chroma_weight_l%d_flag" % i] = 0

    def _write_marking(self, s, marking):
        if self.unit_type == 5:
            s.u(1, "no_output_of_prior_pics_flag", 0)
            s.u(1, "long_term_reference_flag", 1)
            return
        s.u(1, "adaptive_ref_pic_marking_mode_flag", int(bool(marking)))
        if not marking:
            return
        s.elements["memory_management_control_operation"] = []
        for operation, values in (*marking, (0, {})):
            one = Syntax(s.writer)
            one.ue("memory_management_control_operation", operation)
            for name, value in values.items():
                one.ue(name, value)
            s.elements["memory_management_control_operation"].append(one.elements)

    def unit(self, **header):
        return nal_unit(self.unit_type, self.payload, nal_ref_idc=self.ref_idc, **header)
