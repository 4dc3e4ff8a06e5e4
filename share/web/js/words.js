// From names to what a person reads.

const SHORT = new Set(("ac acl api apn ca cbr ci cn cpu csr dhcp dns dscp eap fec fps gop gpio hd hdr hls http https icmp id ifb ip " +
    "ipv4 ipv6 kbps lan ldap led lldp mac mdns mqtt mtu nfs ntp osd pat pcr pid pin pmt pps ptp qos rtcp rtmp rtp rtsp sd sdi hdmi sim " +
    "smb smtp snmp sps srt ssh ssid ssl tcp tls tos ts tsl ttl udp uri url usb utc vbr vlan wep wlan wpa acme ftp pal aac eeprom fpga").split(" "));
const WHOLE = {
    ipaddress: "IP address", ip6address: "IPv6 address", macaddress: "MAC address", ipmode: "IP mode", submask: "Subnet mask",
    nameserver: "Name server", hostname: "Host name", linkstate: "Link state", bitrate: "Bit rate", framerate: "Frame rate",
    samplerate: "Sample rate", timezone: "Time zone", firstrun: "First run", passwd: "Password", passphrase: "Pass phrase",
    inputmode: "Input mode", inputformat: "Input format", productname: "Product name", brandname: "Brand name",
    serialnumber: "Serial number", buildinfo: "Build", bootloader: "Boot loader", aspectratio: "Aspect ratio",
    temperature_c: "Temperature (°C)", temperature_f: "Temperature (°F)", codec: "Codec", essid: "ESSID", wepkey: "WEP key",
};

function word(text) {
    return SHORT.has(text.toLowerCase()) ? text.toUpperCase().replace("IPV", "IPv") : text;
}

export function capital(text) {
    return text.charAt(0).toUpperCase() + text.slice(1);
}

/** One part of a name as a label: "received_bytes" is "Received bytes". */
export function label(part) {
    if (Object.hasOwn(WHOLE, part))
        return WHOLE[part];
    const words = part.replace(/([A-Z]{2,})([A-Z][a-z])/g, "$1 $2").replace(/([a-z]{2})([A-Z])/g, "$1 $2").split(/[_\s]+/).filter(Boolean);
    return capital(words.map((one, at) => word(at > 0 && /^[A-Z][a-z]/.test(one) && !/[A-Z]$/.test(one) ? one.toLowerCase() : one)).join(" ")) || part;
}

/** The last part of a name. */
export function leaf(name) {
    return name.slice(name.lastIndexOf(".") + 1);
}

/** All before the last part. */
export function parent(name) {
    return name.slice(0, Math.max(0, name.lastIndexOf(".")));
}

/** The parts of a group as a title; numbers stay with the word before them: "Outputs 1". */
export function title(path) {
    const parts = [];
    for (const part of path.split(".").filter(Boolean)) {
        if (/^\d+$/.test(part) && parts.length > 0)
            parts[parts.length - 1] += ` ${part}`;
        else
            parts.push(label(part));
    }
    return parts;
}

/** The same for headings: "Info" says nothing between other words. */
export function heading(path) {
    const parts = title(path);
    return parts.filter((part, at) => part !== "Info" || at === parts.length - 1);
}

/** The label of an API by its full name. */
export function labelOf(name) {
    const last = leaf(name);
    return /^\d+$/.test(last) ? `${label(leaf(parent(name)))} ${last}` : label(last);
}

/** "2:05", for a countdown. */
export function minutes(seconds) {
    const whole = Math.max(0, Math.round(seconds));
    return `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, "0")}`;
}

export function plural(count, one, many = `${one}s`) {
    return `${count} ${count === 1 ? one : many}`;
}

/** A number with the prefix that keeps it short: 5870000 is "5.87 M". */
export function scaled(value) {
    const steps = [[1e12, "T"], [1e9, "G"], [1e6, "M"], [1e3, "k"]];
    const [factor, prefix] = steps.find(([least]) => Math.abs(value) >= least) ?? [1, ""];
    const number = value / factor;
    const text = Math.abs(number) >= 100 ? number.toFixed(0) : Number(number.toFixed(Math.abs(number) >= 10 ? 1 : 2)).toString();
    return `${text} ${prefix}`.trimEnd();
}

/** A time as this place writes it, with "today" and the like left to the reader. */
export function moment(time) {
    const date = new Date(time);
    return Number.isNaN(date.getTime()) ? String(time ?? "")
        : date.toLocaleString(undefined, { dateStyle: "medium", timeStyle: "medium" });
}
