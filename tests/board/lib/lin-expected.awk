# The LIN records that a host is due for a trace of the clusters, as hex, one line each, up to the
# checksum on the wire. Reads the lines of `vboardctl lin trace`; `channel` is 0 or 1.
function le(value, bytes,    text) {
    for (text = ""; bytes > 0; bytes--) {
        text = text sprintf("%02x", value % 256)
        value = int(value / 256)
    }
    return text
}

BEGIN {
    bits["noresponse"] = 1
    bits["framing"] = 2
    bits["parity"] = 4
    bits["checksum"] = 8
}

!/^#/ && index($4, channel) && $10 != "aborted" && $10 != "short" {
    times = le($2, 8) le($3, 8)
    if ($6 == "wakeup") {
        print "0013000000091b" le(channel, 1) times "0000000000000000"
        next
    }
    code = 0
    count = split($10, words, ",")
    for (w = 1; w <= count; w++) {
        code += bits[words[w]]
    }
    from = $7 == "-" ? $5 : $7
    data = $8 == "-" ? "" : tolower($8)
    print "0067000000091a" le(channel, 1) tolower(substr($6, 3)) times (code ? "03" : "02") \
        le(code, 2) (from == "lin" channel ? "00" : "01") le(length(data) / 2, 1) \
        substr(data "0000000000000000", 1, 16) ($9 == "-" ? "00" : tolower(substr($9, 3)))
}
