#ifndef MOXIDOM_DOMWRITER_H
#define MOXIDOM_DOMWRITER_H

// The sink of MOXIDOM_Helper::write. The serialiser hands its output only to
// the three write operations below, in pieces of a few KiB at most, so a
// subclass decides where the bytes go (a socket stream, a string, a file).
//
// The order of the virtual operations is part of the contract with the
// toolkit's subclass and must not change.
//
// A subclass overriding one write overload hides the other; add
// `using DomWriter::write;` when both are to stay callable on the subclass.
class DomWriter {
public:
    DomWriter() = default;
    DomWriter(const DomWriter&) = delete;
    DomWriter& operator=(const DomWriter&) = delete;
    virtual ~DomWriter();

    // `length` bytes of serialised output.
    virtual void write(const char* data, unsigned int length) = 0;
    // A line break between top-level parts of a document (after the XML
    // declaration and after each top-level node). The default writes "\n";
    // the toolkit's writer writes CR LF.
    virtual void writeNewLine();
    // The encoding of the bytes handed to the writer: always "UTF-8". The
    // serialiser does not consult an override; it exists for the writer's users.
    virtual const char* getOutputEncoding();
    // A NUL-terminated piece of output; null writes nothing. The default passes
    // the text to write(data, length).
    virtual void write(const char* text);
};

#endif
