// The server side of request bodies: pulls the body through the input filters in pieces
// of 8192 bytes and hands them to BodyBuffer (get_postdata) or UploadSplitter (save_uImage).
#include "module/request_body.h"

#include <strings.h>

#include "base/absent_text.h"
#include "base/log.h"
#include "commands/system/firmware_update.h"
#include "module/body_buffer.h"
#include "module/upload_pace.h"
#include "module/upload_splitter.h"

namespace {

constexpr apr_size_t kPieceSize = 8192;

// Whether the request announces a body: a Content-Length, or chunked transfer coding.
// Logs under the caller's name when it does not.
bool body_expected(request_rec *r, const char *func) {
    bool expected = apr_table_get(r->headers_in, "Content-Length") != nullptr;
    const char *coding = apr_table_get(r->headers_in, "Transfer-Encoding");
    if (coding != nullptr) {
        if (strcasecmp(coding, "chunked") != 0) {
            KLOG_AS(KORVEX_LOG_ERROR, func, "Unsupported Transfer Encoding: %s\n",
                    ap_escape_html2(r->pool, coding, 0));
            return false;
        }
        expected = true;
    }
    if (!expected) {
        KLOG_AS(KORVEX_LOG_ERROR, func, "No request body.\n");
        return false;
    }
    return true;
}

// The declared length, or -1 without a Content-Length. False (logged) for a value that
// is no length at all; the server's own filter would refuse it too.
bool declared_length(request_rec *r, const char *func, apr_off_t *declared) {
    *declared = -1;
    const char *text = apr_table_get(r->headers_in, "Content-Length");
    if (text == nullptr) return true;
    if (korvex::parse_content_length(text, declared)) return true;
    KLOG_AS(KORVEX_LOG_ERROR, func, "Unusable Content-Length: %s\n", ap_escape_html2(r->pool, text, 0));
    return false;
}

enum class LoopEnd { kEndOfStream, kReadFailed, kStopped };

// Holds an upload to its pace (module/upload_pace.h): each read may wait no longer than
// the current window has left, through the connection's socket time-out, which is put
// back after every read. mod_reqtimeout, where it is loaded, bounds the same reads the same
// way below us; the earlier bound ends the read, with APR_TIMEUP either way.
class PacedReads {
public:
    explicit PacedReads(request_rec *r) : socket_(ap_get_conn_socket(r->connection)), pace_(apr_time_now()) {}
    PacedReads(const PacedReads &) = delete;
    PacedReads &operator=(const PacedReads &) = delete;

    void before_read() {
        if (socket_ == nullptr || apr_socket_timeout_get(socket_, &saved_) != APR_SUCCESS) return;
        apr_interval_time_t wait = pace_.wait_left(apr_time_now());
        if (saved_ >= 0 && saved_ < wait) wait = saved_;
        changed_ = apr_socket_timeout_set(socket_, wait) == APR_SUCCESS;
    }
    void after_read() {
        if (changed_) apr_socket_timeout_set(socket_, saved_);
        changed_ = false;
    }
    void took(apr_size_t bytes) { pace_.took(bytes, apr_time_now()); }
    // Whether a failed read was this bound running out.
    bool gave_up(apr_status_t failure) const {
        return APR_STATUS_IS_TIMEUP(failure) && pace_.too_slow(apr_time_now());
    }

private:
    apr_socket_t *socket_;
    korvex::UploadPace pace_;
    apr_interval_time_t saved_ = -1;
    bool changed_ = false;
};

// Asks the input filters for pieces until end of stream, a failed read, or until consume
// returns false. The brigade is emptied every round, so the body never piles up in memory.
// *failure gets the status of a failed read. With `paced`, every read is bounded by it.
template <typename Consume>
LoopEnd read_pieces(request_rec *r, apr_bucket_brigade *brigade, Consume &&consume,
                    apr_status_t *failure = nullptr, PacedReads *paced = nullptr) {
    for (;;) {
        if (paced != nullptr) paced->before_read();
        apr_status_t status =
            ap_get_brigade(r->input_filters, brigade, AP_MODE_READBYTES, APR_BLOCK_READ, kPieceSize);
        if (paced != nullptr) paced->after_read();
        if (status != APR_SUCCESS) {
            apr_brigade_cleanup(brigade);
            if (failure != nullptr) *failure = status;
            return LoopEnd::kReadFailed;
        }
        LoopEnd end = LoopEnd::kEndOfStream;
        bool more = true;
        for (apr_bucket *bucket = APR_BRIGADE_FIRST(brigade); bucket != APR_BRIGADE_SENTINEL(brigade);
             bucket = APR_BUCKET_NEXT(bucket)) {
            if (APR_BUCKET_IS_EOS(bucket)) {
                more = false;
                break;
            }
            if (APR_BUCKET_IS_METADATA(bucket)) continue;
            const char *data = nullptr;
            apr_size_t size = kPieceSize;
            const apr_status_t read = apr_bucket_read(bucket, &data, &size, APR_BLOCK_READ);
            if (read != APR_SUCCESS) {
                if (failure != nullptr) *failure = read;
                end = LoopEnd::kReadFailed;
                more = false;
                break;
            }
            if (!consume(data, size)) {
                end = LoopEnd::kStopped;
                more = false;
                break;
            }
        }
        apr_brigade_cleanup(brigade);
        if (!more) return end;
    }
}

// False at the first range that cannot be written whole.
bool write_spans(apr_file_t *file, const korvex::WriteList &list) {
    for (int i = 0; i < list.count; ++i) {
        apr_size_t written = 0;
        if (apr_file_write_full(file, list.spans[i].data, list.spans[i].size, &written) != APR_SUCCESS) {
            KLOG_AS(KORVEX_LOG_ERROR, "save_uImage", "apr_file_write failed\n");
            return false;
        }
    }
    return true;
}

// The upload's own file next to the image; removed unless it is kept as the new image.
class UploadFile {
public:
    explicit UploadFile(apr_pool_t *pool) : pool_(pool) {
        char *path = apr_pstrcat(pool, kFirmwareImagePath, ".upload.XXXXXX", nullptr);
        const apr_int32_t flags = APR_FOPEN_CREATE | APR_FOPEN_WRITE | APR_FOPEN_EXCL | APR_FOPEN_BINARY;
        if (apr_file_mktemp(&file_, path, flags, pool) == APR_SUCCESS) path_ = path;
    }
    ~UploadFile() {
        if (file_ != nullptr) apr_file_close(file_);
        if (path_ != nullptr) apr_file_remove(path_, pool_);
    }
    apr_file_t *file() const { return file_; }
    // Closes the file and puts it in the image's place. False when either fails.
    bool replace_image() {
        const apr_status_t closed = apr_file_close(file_);
        file_ = nullptr;
        if (closed != APR_SUCCESS || apr_file_rename(path_, kFirmwareImagePath, pool_) != APR_SUCCESS) return false;
        path_ = nullptr;
        return true;
    }

private:
    apr_pool_t *pool_;
    apr_file_t *file_ = nullptr;
    const char *path_ = nullptr;
};

}  // namespace

char *get_postdata(request_rec *r, BodyStatus *status) {
    BodyStatus ignored = BodyStatus::kRead;
    if (status == nullptr) status = &ignored;
    *status = BodyStatus::kUnusable;
    if (!body_expected(r, __func__)) return nullptr;
    apr_off_t declared = -1;
    if (!declared_length(r, __func__, &declared)) return nullptr;

    const apr_off_t limit = korvex::body_limit(ap_get_limit_req_body(r));
    if (declared > limit) {
        KLOG(KORVEX_LOG_ERROR, "Request body larger than %" APR_OFF_T_FMT " bytes.\n", limit);
        *status = BodyStatus::kTooLarge;
        return nullptr;
    }
    // Grown as the data arrives (in one block when the length is declared), never past the
    // declared length or the limit.
    korvex::BodyBuffer buffer(r->pool, korvex::body_bound(declared, ap_get_limit_req_body(r)));
    if (declared > 0 && !buffer.expect(static_cast<apr_size_t>(declared))) {
        KLOG(KORVEX_LOG_ERROR, "No memory for the request body.\n");
        return nullptr;
    }
    apr_bucket_brigade *brigade = apr_brigade_create(r->pool, r->connection->bucket_alloc);
    const LoopEnd end = read_pieces(r, brigade, [&buffer](const char *data, apr_size_t size) {
        return buffer.append(data, size);
    });
    char *body = buffer.finish();

    if (end == LoopEnd::kReadFailed) {
        KLOG(KORVEX_LOG_ERROR, "Error reading request body.\n");
        return nullptr;
    }
    if (end == LoopEnd::kStopped) {
        if (buffer.over_bound()) {
            KLOG(KORVEX_LOG_ERROR, "Request body larger than %" APR_SIZE_T_FMT " bytes.\n", buffer.bound());
            *status = BodyStatus::kTooLarge;
        } else {
            KLOG(KORVEX_LOG_ERROR, "No memory for the request body.\n");
        }
        return nullptr;
    }
    *status = BodyStatus::kRead;
    return body;
}

int save_uImage(request_rec *r) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    const char *length_text = apr_table_get(r->headers_in, "Content-Length");
    apr_off_t total = 0;
    if (length_text != nullptr) korvex::parse_content_length(length_text, &total);
    KLOG(KORVEX_LOG_TRACE, "total: %d\n", static_cast<int>(total));
    KLOG(KORVEX_LOG_TRACE, "Content-Length: %s\n", korvex::or_absent(length_text));

    if (!body_expected(r, __func__)) return HTTP_BAD_REQUEST;
    apr_off_t declared = -1;
    if (!declared_length(r, __func__, &declared)) return HTTP_BAD_REQUEST;

    UploadFile upload(r->pool);
    if (upload.file() == nullptr) {
        KLOG(KORVEX_LOG_ERROR, "apr_file_open failed\n");
        return HTTP_INTERNAL_SERVER_ERROR;
    }

    using Status = korvex::UploadSplitter::Status;
    korvex::UploadSplitter splitter(r->pool, declared);
    Status status = Status::kContinue;
    korvex::WriteList list;
    bool written = true;
    apr_status_t read_failure = APR_SUCCESS;
    PacedReads paced(r);
    apr_bucket_brigade *brigade = apr_brigade_create(r->pool, r->connection->bucket_alloc);
    const LoopEnd end = read_pieces(
        r, brigade,
        [&](const char *data, apr_size_t size) {
            paced.took(size);
            status = splitter.feed(data, size, &list);
            if (status != Status::kContinue) return false;
            written = write_spans(upload.file(), list);
            return written;
        },
        &read_failure, &paced);

    if (status == Status::kOutOfMemory) {
        apr_abortfunc_t abort_fn = apr_pool_abort_get(r->pool);
        if (abort_fn == nullptr) ap_log_assert("abort_fn != NULL", "mod_korvex", 187);
        abort_fn(APR_ENOMEM);
        return HTTP_INTERNAL_SERVER_ERROR;
    }
    if (status != Status::kContinue) return HTTP_BAD_REQUEST;
    if (!written) return HTTP_INTERNAL_SERVER_ERROR;

    if (end == LoopEnd::kReadFailed) {
        if (paced.gave_up(read_failure)) {
            KLOG(KORVEX_LOG_ERROR, "upload slower than %d bytes in %d s: given up\n", static_cast<int>(korvex::kPaceBytes),
                 static_cast<int>(apr_time_sec(korvex::kPaceWindow)));
            return HTTP_REQUEST_TIME_OUT;
        }
        KLOG(KORVEX_LOG_ERROR, "Error reading request body.\n");
        // A body over LimitRequestBody is 413, a read that timed out (mod_reqtimeout, or the
        // server's Timeout) 408, a client that went away or sent too little 400.
        return ap_map_http_request_error(read_failure, HTTP_BAD_REQUEST);
    }
    KLOG(KORVEX_LOG_TRACE, "Got %d bytes of request body data.\n", static_cast<int>(splitter.received()));
    if (splitter.finish() != Status::kContinue) return HTTP_BAD_REQUEST;
    if (!splitter.closed()) {
        KLOG(KORVEX_LOG_ERROR, "upload without its closing boundary\n");
        return HTTP_BAD_REQUEST;
    }
    if (!upload.replace_image()) {
        KLOG(KORVEX_LOG_ERROR, "cannot put the upload in place of %s\n", kFirmwareImagePath);
        return HTTP_INTERNAL_SERVER_ERROR;
    }
    return 0;
}
