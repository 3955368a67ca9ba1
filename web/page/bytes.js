// Reads and joins bytes. Reading past the end throws a RangeError, so that a parser of a damaged file stops there.

export class Reader {
    constructor(bytes, littleEndian = false) {
        this.bytes = bytes;
        this.view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
        this.littleEndian = littleEndian;
    }

    get length() {
        return this.bytes.length;
    }

    u8(at) {
        return this.view.getUint8(at);
    }

    u16(at) {
        return this.view.getUint16(at, this.littleEndian);
    }

    u32(at) {
        return this.view.getUint32(at, this.littleEndian);
    }

    set16(at, value) {
        this.view.setUint16(at, value, this.littleEndian);
    }

    set32(at, value) {
        this.view.setUint32(at, value, this.littleEndian);
    }

    text(at, length) {
        return latin1(this.slice(at, at + length));
    }

    slice(from, to) {
        if (from < 0 || to < from || to > this.length) {
            throw new RangeError("past the end");
        }
        return this.bytes.subarray(from, to);
    }
}

export function latin1(bytes) {
    let text = "";
    for (const byte of bytes) {
        text += String.fromCharCode(byte);
    }
    return text;
}

export const fromLatin1 = (text) => Uint8Array.from(text, (letter) => letter.charCodeAt(0));

export const startsWith = (bytes, text) => latin1(bytes.subarray(0, text.length)) === text;

export function concatenate(parts) {
    const whole = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
    let at = 0;
    for (const part of parts) {
        whole.set(part, at);
        at += part.length;
    }
    return whole;
}

export function big32(value) {
    return Uint8Array.of(value >>> 24, value >>> 16, value >>> 8, value);
}

const crcTable = Uint32Array.from({length: 256}, (_, byte) => {
    let value = byte;
    for (let bit = 0; bit < 8; ++bit) {
        value = value & 1 ? (value >>> 1) ^ 0xedb88320 : value >>> 1;
    }
    return value;
});

// The checksum that PNG and ZIP share.
export function crc32(bytes) {
    let value = 0xffffffff;
    for (let at = 0; at < bytes.length; ++at) {
        value = (value >>> 8) ^ crcTable[(value ^ bytes[at]) & 0xff];
    }
    return ~value >>> 0;
}
