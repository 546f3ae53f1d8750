"""The elements of SEI messages in the form of elements.py: paths begin with "message[0]." for the first of a unit.

trace_headers prints the bytes of user data; what they hold is worked out here (ATSC A/53, MISB ST 0604).
"""

PIC_TIMING, BUFFERING_PERIOD, REGISTERED, UNREGISTERED = 1, 0, 4, 5

_HRDS = ("nal_hrd_parameters", "vcl_hrd_parameters")
_PRECISION_TIME = list(b"MISPmicrosectime")
_TIMESTAMP_ELEMENTS = ("ct_type", "nuit_field_based_flag", "counting_type", "full_timestamp_flag", "discontinuity_flag",
                       "cnt_dropped_flag", "n_frames", "seconds_value", "minutes_value", "hours_value",
                       "seconds_flag", "minutes_flag", "hours_flag", "time_offset")
_TRIPLE_ELEMENTS = ("cc_valid", "cc_type", "cc_data_1", "cc_data_2")

# What the streams must hold.
ELEMENTS = ["payload_type", "payload_size", "seq_parameter_set_id", "cpb_removal_delay", "dpb_output_delay",
            "pic_struct", "clock_timestamp_info.clock_timestamp_flag", "user_identifier", "process_cc_data_flag",
            "cc_count", "active_format_flag", "active_format", "uuid_iso_iec_11578", "precision_time_stamp.status",
            "precision_time_stamp.microseconds"]
ELEMENTS += ["clock_timestamp_info." + name for name in _TIMESTAMP_ELEMENTS]
ELEMENTS += ["cc_data_pkts." + name for name in _TRIPLE_ELEMENTS]
ELEMENTS += ["hrd.initial_cpb_removal_delay", "hrd.initial_cpb_removal_delay_offset"]
ELEMENTS = ["message." + name for name in ELEMENTS]


def from_trace(unit):
    """The elements of a unit of trace_headers."""
    messages = []
    extension = 0
    for element in unit.elements:
        name, _, index = element.name.partition("[")
        if name == "ff_byte":
            extension += 255
        elif name == "last_payload_type_byte":
            messages.append(_Message(element.value + extension))
            extension = 0
        elif name == "last_payload_size_byte":
            messages[-1].elements["payload_size"] = element.value + extension
            extension = 0
        elif messages:
            messages[-1].add(name, index[:-1], element.value)
    elements = {}
    for i, message in enumerate(messages):
        elements.update(("message[%d].%s" % (i, name), value) for name, value in message.all_elements().items())
    return elements


class _Message:
    def __init__(self, payload_type):
        self.type = payload_type
        self.elements = {"payload_type": payload_type}
        self.bytes = []  # of user data
        self.timestamp = self.hrd = -1

    def add(self, name, index, value):
        if self.type in (REGISTERED, UNREGISTERED):
            if name.startswith(("itu_t_t35_", "uuid_iso_iec_11578", "user_data_payload_byte")):
                self.bytes.append(value)
        elif self.type == BUFFERING_PERIOD:
            self._add_of_period(name, index, value)
        elif self.type == PIC_TIMING:
            self._add_of_timing(name, index, value)

    def _add_of_period(self, name, index, value):
        if name == "seq_parameter_set_id":
            self.elements[name] = value
        elif name.startswith("initial_cpb_removal_delay"):
            self.hrd += name == "initial_cpb_removal_delay" and index == "0"
            self.elements["hrd[%d].%s[%s]" % (self.hrd, name, index)] = value

    def _add_of_timing(self, name, index, value):
        if name == "clock_timestamp_flag":
            self.timestamp = int(index)
        if name == "clock_timestamp_flag" or name in _TIMESTAMP_ELEMENTS:
            self.elements["clock_timestamp_info[%d].%s" % (self.timestamp, name)] = value
        elif name in ("cpb_removal_delay", "dpb_output_delay", "pic_struct"):
            self.elements[name] = value

    def all_elements(self):
        if self.type == REGISTERED:
            self.elements.update(_registered(self.bytes))
        elif self.type == UNREGISTERED:
            self.elements.update(_unregistered(self.bytes))
        return self.elements


def _big_endian(data):
    return int.from_bytes(bytes(data), "big")


def _registered(data):
    identifier = bytes(data[3:7])
    captions = identifier == b"GA94" and data[7:8] == [3]
    if not captions and identifier != b"DTG1":
        return {}
    elements = {"itu_t_t35_country_code": data[0], "itu_t_t35_provider_code": _big_endian(data[1:3]),
                "user_identifier": _big_endian(data[3:7])}
    if not captions:
        elements["active_format_flag"] = data[7] >> 6 & 1
        if elements["active_format_flag"]:
            elements["active_format"] = data[8] & 15
        return elements
    elements.update(user_data_type_code=data[7], process_cc_data_flag=data[8] >> 6 & 1, cc_count=data[8] & 31)
    for i in range(elements["cc_count"]):
        head, first, second = data[10 + 3 * i:13 + 3 * i]
        for name, value in zip(_TRIPLE_ELEMENTS, (head >> 2 & 1, head & 3, first, second)):
            elements["cc_data_pkts[%d].%s" % (i, name)] = value
    return elements


def _unregistered(data):
    elements = {"uuid_iso_iec_11578[%d]" % i: value for i, value in enumerate(data[:16])}
    if data[:16] == _PRECISION_TIME:
        time = data[16:]
        elements["precision_time_stamp.status"] = time[0]
        elements["precision_time_stamp.microseconds"] = _big_endian(time[1:3] + time[4:6] + time[7:9] + time[10:12])
    return elements


def from_tool(messages):
    """What h264tool prints of a unit's messages, in the form of the elements of an object."""
    return {"message": [_from_message(message) for message in messages]}


def _from_message(message):
    result = {name: message[name] for name in ("payload_type", "payload_size")}
    for name in ("pic_timing", "buffering_period", "closed_captions", "active_format_description",
                 "user_data_unregistered"):
        result.update(message.get(name, {}))
    hrds = [result.pop(name) for name in _HRDS if name in result]
    if hrds:
        result["hrd"] = hrds
    if "uuid_iso_iec_11578" in result:
        result["uuid_iso_iec_11578"] = list(bytes.fromhex(result["uuid_iso_iec_11578"].replace("-", "")))
    if "precision_time_stamp" in result:
        result["precision_time_stamp"] = {name: result["precision_time_stamp"][name]
                                          for name in ("status", "microseconds")}
    return result
